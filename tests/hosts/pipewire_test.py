"""The source "vqns noise suppression" in PipeWire, without hardware: a recording plays as the microphone, an
application records the source. Daemons, settings and sockets lie in a folder of the test's own; the graph runs at
48000 Hz."""
import os
import shutil
import signal
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

import hosts
from hosts import np

RATE, QUANTUM, TAIL = 48000, 8192, 1.0
OWN = hosts.SOURCE / "build/pipewire"  # scripts/pipewire.sh
MICROPHONE = "{ media.class = Audio/Source  node.name = microphone }"  # what the player presents itself as
CONF = hosts.SOURCE / "plugins/pipewire/vqns-microphone.conf"

if (OWN / "complete").exists():
    LIBRARIES = next(OWN.glob("usr/lib/*/libpipewire-0.3.so.0")).parent
    PLACE = {"PATH": f"{OWN}/usr/bin:{os.environ['PATH']}", "LD_LIBRARY_PATH": LIBRARIES,
             "PIPEWIRE_MODULE_DIR": LIBRARIES / "pipewire-0.3", "SPA_PLUGIN_DIR": LIBRARIES / "spa-0.2",
             "WIREPLUMBER_MODULE_DIR": LIBRARIES / "wireplumber-0.4",
             "WIREPLUMBER_DATA_DIR": OWN / "usr/share/wireplumber"}
else:
    PLACE = {}
    for name, package in ("pipewire", "pipewire-bin, or scripts/pipewire.sh"), ("wireplumber", "wireplumber"):
        hosts.need_program(name, package)
    if "libwireplumber 0.4" not in hosts.run("wireplumber", "--version").stdout:
        hosts.skip("WirePlumber 0.4, whose settings these are,", "wireplumber of Debian 12, or scripts/pipewire.sh")
hosts.need_built("plugins/ladspa/vqns_ladspa.so", "ladspa-sdk")

# What every process of the graph loads. Nothing here asks for real-time priority, the desktop's bus or a device.
COMMON = """
context.spa-libs = { audio.convert.* = audioconvert/libspa-audioconvert  support.* = support/libspa-support }
context.modules = [ %s ]
"""
MODULES = "protocol-native", "metadata", "client-node", "adapter"
SETTINGS = {
    "client": ((), ""),
    "client-rt": ((), ""),
    "pipewire": (("access", "spa-node-factory", "link-factory"), f"""
        context.properties = {{ core.daemon = true  core.name = pipewire-0  support.dbus = false
            default.clock.rate = {RATE}  default.clock.quantum = {QUANTUM}
            default.clock.min-quantum = {QUANTUM}  default.clock.max-quantum = {QUANTUM} }}
        context.objects = [ {{ factory = spa-node-factory  args = {{ factory.name = support.node.driver
            node.name = clock  node.group = pipewire.dummy  priority.driver = 1 }} }} ]"""),
    "wireplumber": (("session-manager",), """
        context.properties = { wireplumber.script-engine = lua-scripting  support.dbus = false }
        wireplumber.components = [ %s %s ]""" % (
            " ".join(f"{{ name = libwireplumber-module-{m}, type = module }}" for m in (
                "lua-scripting", "metadata", "default-nodes", "default-nodes-api", "mixer-api", "si-node",
                "si-audio-adapter", "si-audio-endpoint", "si-standard-link")),
            " ".join(f"{{ name = {s}.lua, type = script/lua }}" for s in (
                "access/access-default", "create-item", "policy-node")))),
}


class Desktop:
    """PipeWire and its session manager, with the source as a user would install it."""

    def __init__(self, plugin_folder):
        self.folder = Path(tempfile.mkdtemp(prefix="vqns-pipewire-"))
        self.running, self.log = [], open(self.folder / "log", "wb")
        settings = self.folder / "config/pipewire"
        (settings / "pipewire.conf.d").mkdir(parents=True)
        shutil.copy(CONF, settings / "pipewire.conf.d")
        for name, (modules, rest) in SETTINGS.items():
            listed = " ".join(f"{{ name = libpipewire-module-{m} }}" for m in MODULES + modules)
            (settings / f"{name}.conf").write_text(COMMON % listed + rest)
        self.place = {**os.environ, **{k: str(v) for k, v in {
            **PLACE, "XDG_RUNTIME_DIR": self.folder, "XDG_CONFIG_HOME": self.folder / "config",
            "XDG_STATE_HOME": self.folder / "state", "WIREPLUMBER_CONFIG_DIR": settings,
            "LADSPA_PATH": plugin_folder}.items()}}
        for variable in "DBUS_SESSION_BUS_ADDRESS", "PIPEWIRE_CONFIG_DIR", "PIPEWIRE_REMOTE", "PIPEWIRE_RUNTIME_DIR":
            self.place.pop(variable, None)

    def open(self):
        self.start("pipewire")
        self.wait_for("socket", lambda: (self.folder / "pipewire-0").exists())
        self.start("wireplumber")

    def close(self):
        while self.running:
            self.stop(self.running[-1])
        self.log.close()
        shutil.rmtree(self.folder)

    def start(self, *command):
        self.running.append(subprocess.Popen([str(c) for c in command], env=self.place, stdout=self.log,
                                             stderr=self.log))
        return self.running[-1]

    def stop(self, process):
        self.running.remove(process)
        process.send_signal(signal.SIGINT)
        try:
            process.wait(10)
        except subprocess.TimeoutExpired:
            process.kill()
            raise

    def wait_for(self, what, there):
        for _ in range(100):
            if there():
                return
            time.sleep(0.1)
        raise AssertionError(f"no {what}:\n" + (self.folder / "log").read_text(errors="replace"))

    def run(self, *command):
        return hosts.run(*command, env=self.place).stdout

    def links(self):
        """Pairs (output port, input port)."""
        found, port = [], ""
        for line in self.run("pw-link", "-l").splitlines():
            if line.startswith("  |->"):
                found.append((port, line.split()[1]))
            elif not line.startswith(" "):
                port = line.strip()
        return found

    def sources(self):
        return self.run("pw-link", "-o").split()

    def record(self, microphone):
        """What an application gets from the source while the file plays as the microphone, in units of 16 bits."""
        recorded = self.folder / "recorded.wav"
        recorder = self.start("pw-record", "--target", "vqns_source", "--format", "f32", "--rate", RATE, "--channels",
                              1, recorded)
        link = ("vqns_source:capture_MONO", "pw-record:input_MONO")
        self.wait_for(f"link {link}", lambda: link in self.links())
        self.run("pw-play", "-P", MICROPHONE, microphone)
        self.stop(recorder)
        return hosts.soundfile.read(recorded, dtype="float32")[0] * 32768


class PipeWire(unittest.TestCase):
    def desktop(self, plugin_folder):
        desktop = Desktop(plugin_folder)
        self.addCleanup(desktop.close)
        desktop.open()
        return desktop

    def test_the_source_is_the_microphone_without_its_noise(self):
        desktop = self.desktop(hosts.BUILD / "plugins/ladspa")
        file = desktop.folder / "noisy.wav"
        noisy = hosts.noisy(file, RATE, silence=TAIL)[:, 0]
        desktop.wait_for("source", lambda: "vqns_source:capture_MONO" in desktop.sources())
        got, delay = desktop.record(file), hosts.latency(RATE)

        # The graph had run silent for some cycles when the file began; the program gets as much silence ahead.
        start = hosts.delay_between(hosts.denoised(file)[:, 0], got, len(got)) - delay
        ahead = desktop.folder / "ahead.wav"
        hosts.soundfile.write(ahead, np.concatenate([np.zeros(start, np.int16), noisy]), RATE, subtype="PCM_16")
        whole = slice(start, start + len(noisy) - int(TAIL * RATE))
        got, wanted = got[delay:][whole], hosts.denoised(ahead)[whole, 0]
        np.testing.assert_array_equal(got, wanted)

        speech = hosts.speech_frames(hosts.SOURCE / "samples/hum.flac", len(got) * 100 // RATE)
        (speech_in, pause_in), (speech_out, pause_out) = (hosts.levels(x, RATE, speech) for x in (noisy, got))
        self.assertLess(pause_out, pause_in - 25)
        self.assertLess(abs(speech_out - speech_in), 6)

        # Its controls can be turned while it is there: bypassed, it is the microphone; of a stereo one, the mean.
        frames = hosts.noisy(file, RATE, 2, silence=TAIL).mean(1)
        desktop.run("pw-cli", "set-param", "vqns_capture", "Props", '{ params = [ "vqns:Bypass" 1 ] }')
        passed = desktop.record(file)
        start = hosts.delay_between(frames, passed, len(passed))
        self.assertEqual(start % QUANTUM, delay)  # files begin with a cycle
        whole = len(frames) - int(TAIL * RATE)
        np.testing.assert_array_equal(passed[start:start + whole], frames[:whole])

    def test_without_the_plugin_sound_goes_on(self):
        desktop = self.desktop(hosts.SOURCE)
        desktop.start("pw-play", "-P", MICROPHONE, hosts.SOURCE / "samples/hum.flac")
        desktop.wait_for("microphone", lambda: "microphone:capture_MONO" in desktop.sources())
        self.assertNotIn("vqns_source:capture_MONO", desktop.sources())


if __name__ == "__main__":
    hosts.main()
