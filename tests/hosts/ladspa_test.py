"""The LADSPA plugins in the hosts of Debian's ladspa-sdk; what those cannot do, through the plugin's entry itself."""
import ctypes
import itertools
import os
import tempfile
import unittest
from ctypes import POINTER, byref, c_char_p, c_float, c_int, c_ulong, c_void_p
from pathlib import Path

import hosts
from hosts import np

ANALYSE, APPLY = (hosts.need_program(name, "ladspa-sdk") for name in ("analyseplugin", "applyplugin"))
FILE = hosts.need_built("plugins/ladspa/vqns_ladspa.so", "ladspa-sdk")
LABELS = {1: "vqns_mono", 2: "vqns_stereo"}
PR_SET_SECCOMP, SECCOMP_MODE_STRICT, SYS_EXIT = 22, 1, 60


class Descriptor(ctypes.Structure):
    """LADSPA_Descriptor."""


Descriptor._fields_ = [
    ("id", c_ulong), ("label", c_char_p), ("properties", c_int), ("name", c_char_p), ("maker", c_char_p),
    ("copyright", c_char_p), ("port_count", c_ulong), ("ports", POINTER(c_int)), ("port_names", POINTER(c_char_p)),
    ("hints", c_void_p), ("data", c_void_p),
    ("instantiate", ctypes.CFUNCTYPE(c_void_p, POINTER(Descriptor), c_ulong)),
    ("connect_port", ctypes.CFUNCTYPE(None, c_void_p, c_ulong, c_void_p)),
    ("activate", ctypes.CFUNCTYPE(None, c_void_p)), ("run", ctypes.CFUNCTYPE(None, c_void_p, c_ulong)),
    ("run_adding", c_void_p), ("set_gain", c_void_p), ("deactivate", c_void_p),
    ("cleanup", ctypes.CFUNCTYPE(None, c_void_p))]

ENTRY = ctypes.CDLL(str(FILE)).ladspa_descriptor
ENTRY.argtypes, ENTRY.restype = [c_ulong], POINTER(Descriptor)


class Instance:
    """One plugin, as a host holds it."""

    def __init__(self, channels, rate):
        self.d = ENTRY(channels - 1).contents
        self.names = [self.d.port_names[p].decode() for p in range(self.d.port_count)]
        self.audio = [[p for p in range(self.d.port_count) if self.d.ports[p] == 8 + way] for way in (1, 2)]
        self.handle = self.d.instantiate(byref(self.d), rate)
        if not self.handle:
            raise ValueError(rate)
        self.values = dict(zip(self.names, (c_float(v) for v in (100, 1, 0, -1))))
        for name, value in self.values.items():
            self.connect(self.names.index(name), ctypes.addressof(value))
        self.d.activate(self.handle)

    def __del__(self):
        if self.handle:
            self.d.cleanup(self.handle)

    def connect(self, port, address):
        self.d.connect_port(self.handle, port, address)

    def run(self, x, blocks=(1024,), **controls):
        """What comes out for x [frame, channel]; the blocks' lengths are used in turn."""
        for name, value in controls.items():
            self.values[next(n for n in self.names if n.lower().startswith(name))].value = value
        x, y = np.ascontiguousarray(x.T, np.float32), np.full(x.T.shape, 9, np.float32)
        done, lengths = 0, itertools.cycle(blocks)
        while done < x.shape[1]:
            count = min(next(lengths), x.shape[1] - done)
            for data, ports in zip((x, y), self.audio):
                for channel, port in zip(data, ports):
                    self.connect(port, channel[done:].ctypes.data)
            self.d.run(self.handle, count)
            done += count
        return y.T


class Ladspa(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.noisy = Path(cls.folder.name) / "noisy.wav"
        cls.frames = hosts.noisy(cls.noisy, 44100, 2)
        cls.sound = cls.frames[:4 * 44100].astype(np.float32) / 32768
        cls.whole = Instance(2, 44100).run(cls.sound, (1 << 20,))

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def test_hosts_are_told_what_there_is(self):
        text = hosts.run(ANALYSE, FILE).stdout
        ports = ['"Attenuation limit (dB)" input, control, 0 to 100, default 100',
                 '"Levelling" input, control, toggled, default 1', '"Bypass" input, control, toggled, default 0',
                 '"latency" output, control, -0.1 to ..., integer']
        mono = ports + ['"Input" input, audio', '"Output" output, audio']
        stereo = ports + [f'"{way.title()}put {side}" {way}put, audio' for side in ("left", "right") for way in
                          ("in", "out")]
        for label, number, wanted in ("vqns_mono", 0x76716E, mono), ("vqns_stereo", 0x76716F, stereo):
            part = text.split(f'Plugin Label: "{label}"')[1].split("Plugin Name")[0]
            found = part.split("Ports:")[1].strip().splitlines()
            self.assertEqual([line.strip() for line in found], wanted)
            self.assertIn(f"Plugin Unique ID: {number}\n", part)
            self.assertIn("Environment: Normal or Hard Real-Time\n", part)
        self.assertFalse(ENTRY(2))
        exported = hosts.run("nm", "-D", "--defined-only", "--format=posix", FILE).stdout
        self.assertEqual([line.split()[0] for line in exported.splitlines()], ["ladspa_descriptor"])

    def test_files_come_out_as_the_program_makes_them(self):
        out = Path(self.folder.name) / "out.wav"
        every = [(100, 0, 0), (100, 1, 0), (12, 0, 0), (0, 1, 0), (100, 1, 1)]
        for rate, channels, settings in [(16000, 1, every), (8000, 1, every[:2]), (48000, 1, every[2:3]),
                                         (44100, 2, every), (96000, 2, every[1:2]), (11025, 2, every[4:])]:
            noisy = Path(self.folder.name) / "in.wav"
            frames = hosts.noisy(noisy, rate, channels)
            delay = hosts.latency(rate)
            for limit, level, bypass in settings:
                with self.subTest(rate=rate, channels=channels, limit=limit, level=level, bypass=bypass):
                    hosts.run(APPLY, "-s1", noisy, out, FILE, LABELS[channels], limit, level, bypass)
                    got = hosts.soundfile.read(out, dtype="int16", always_2d=True)[0]
                    options = ([] if level else ["--no-level"]) + (
                        ["--attenuation-limit", limit] if limit < 100 else [])
                    wanted = frames if bypass else hosts.denoised(noisy, *options)
                    self.assertFalse(got[:delay].any())
                    np.testing.assert_array_equal(got[delay:delay + len(wanted)], wanted)

    def test_rates_and_the_latency_port(self):
        for rate in 0, 7999, 192001, 2**32 + 48000, 2**64 - 1:
            self.assertRaises(ValueError, Instance, 1, rate)
        for rate, channels in (8000, 1), (12345, 2), (44100, 2), (48000, 1), (192000, 1):
            plugin = Instance(channels, rate)
            plugin.d.run(plugin.handle, 0)
            self.assertEqual(plugin.values["latency"].value, hosts.latency(rate), rate)

    def test_blocks_and_shared_buffers_leave_no_trace(self):
        got = Instance(2, 44100).run(self.sound, (1, 0, 7, 255, 256, 257, 4096, 9999))
        np.testing.assert_array_equal(got, self.whole)
        for crossed in False, True:
            plugin, buffers = Instance(2, 44100), np.ascontiguousarray(self.sound.T)
            for ports, order in zip(plugin.audio, ((0, 1), (1, 0) if crossed else (0, 1))):
                for port, which in zip(ports, order):
                    plugin.connect(port, buffers[which].ctypes.data)
            plugin.d.run(plugin.handle, len(self.sound))
            np.testing.assert_array_equal(buffers[::-1 if crossed else 1].T, self.whole)

    def test_bypass_fades_over_10_ms(self):
        delay, plugin = hosts.latency(44100), Instance(2, 44100)
        passed = np.concatenate([np.zeros((delay, 2), np.float32), self.sound])[:len(self.sound)]
        cuts = [0, 30001, 90007, 120000, len(self.sound)]
        got = np.concatenate([plugin.run(self.sound[a:b], bypass=i % 2) for i, (a, b) in
                              enumerate(zip(cuts, cuts[1:]))])
        share, at = np.zeros(len(got)), np.arange(len(got)) + 1
        for i, (a, b) in enumerate(zip(cuts, cuts[1:])):
            ramp = np.clip((at[a:b] - a) / 441, 0, 1)
            share[a:b] = ramp if i % 2 else 1 - ramp if i else 0
        for still, source in (share == 0, self.whole), (share == 1, passed):
            np.testing.assert_array_equal(got[still], source[still])
        share = share[:, None]
        np.testing.assert_allclose(got, share * passed + (1 - share) * self.whole, atol=1e-5)

    def test_any_control_is_survived(self):
        nan, inf = float("nan"), float("inf")
        sound = self.sound[:44100]
        want = {}
        for odd, plain in [(dict(attenuation=nan), {}), (dict(attenuation=inf), {}), (dict(attenuation=1e30), {}),
                           (dict(attenuation=-inf, levelling=0), dict(attenuation=0, levelling=0)),
                           (dict(attenuation=-3, levelling=-1), dict(attenuation=0, levelling=0)),
                           (dict(levelling=nan, bypass=nan), {}), (dict(levelling=0.1, bypass=-inf), {}),
                           (dict(bypass=0.1), dict(bypass=1))]:
            key = str(plain)
            if key not in want:
                want[key] = Instance(2, 44100).run(sound, **plain)
            np.testing.assert_array_equal(Instance(2, 44100).run(sound, **odd), want[key], str(odd))
        self.assertEqual(len({w.tobytes() for w in want.values()}), 3)
        plugin, broken = Instance(2, 44100), sound.copy()
        broken[5000:5100] = [[nan, inf]]
        broken[6000:6100] = -1e38
        self.assertTrue(np.isfinite(plugin.run(broken)).all())
        self.assertGreater(np.abs(plugin.run(self.sound[44100:])).max(), 0.05)

    def test_activation_begins_afresh(self):
        plugin = Instance(2, 44100)
        plugin.run(self.sound[::-1], bypass=1)
        plugin.d.activate(plugin.handle)
        np.testing.assert_array_equal(plugin.run(self.sound, bypass=0), self.whole)

    def test_running_never_calls_the_system(self):
        for rate in 48000, 96000:
            plugin, sound = Instance(2, rate), np.ascontiguousarray(self.sound.T)
            for port, channel in zip(plugin.audio[0] + plugin.audio[1], (*sound, *sound)):
                plugin.connect(port, channel.ctypes.data)
            libc, run, handle, count = ctypes.CDLL(None), plugin.d.run, plugin.handle, c_ulong(len(self.sound))
            child = os.fork()
            if child == 0:
                libc.prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT)
                run(handle, count)
                libc.syscall(SYS_EXIT, 0)
            self.assertEqual(os.waitpid(child, 0)[1], 0, "ended by its first system call")


if __name__ == "__main__":
    hosts.main()
