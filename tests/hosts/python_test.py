"""The Python module: the same samples, segments and rates as the program, from any thread and any array, and
`pip install .` without a network."""
import ast
import json
import os
import shutil
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from pathlib import Path

import hosts
from hosts import np, soundfile

if not list(hosts.BUILD.glob("python/vqns/_native.*.so")):
    hosts.skip("the Python module, built only with its headers,", "pybind11-dev, python3-dev")
sys.path.insert(0, str(hosts.BUILD / "python"))
import vqns  # noqa: E402

SOURCE = hosts.SOURCE


def as_float(pcm):
    return pcm.astype(np.float32) / np.float32(32768)


class Module(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def same(self, a, b):
        self.assertEqual((a.dtype, a.shape), (b.dtype, b.shape))
        np.testing.assert_array_equal(a, b)

    def resampled(self, path, rate, dtype):
        hosts.run(hosts.PROGRAM, "resample", path, self.folder / "out.wav", "--rate", rate, "--quiet")
        return soundfile.read(self.folder / "out.wav", dtype=dtype, always_2d=True)[0]

    def test_denoise_makes_what_the_program_makes(self):
        wav = self.folder / "in.wav"
        for rate, channels, settings, options in (
                (16000, 1, {}, ()), (44100, 2, {"attenuation_limit": 12}, ("--attenuation-limit", 12)),
                (48000, 3, {"level": False}, ("--no-level",)), (12345, 1, {"attenuation_limit": 0, "level": True},
                                                                ("--attenuation-limit", 0))):
            with self.subTest(rate=rate):
                x = hosts.noisy(wav, rate, channels)
                original, expected = x.copy(), hosts.denoised(wav, *options)
                self.same(vqns.denoise(x, rate, **settings), expected)
                self.same(vqns.denoise(as_float(x), np.int64(rate), **settings), as_float(expected))
                self.same(x, original)
                apart = np.repeat(np.asfortranarray(x), 2, axis=0)[::2]
                apart.flags.writeable = False
                self.same(vqns.denoise(apart, rate, **settings), expected)
                if channels == 1:
                    self.same(vqns.denoise(x[:, 0], rate, **settings), expected[:, 0])
        for empty in (np.empty(0, np.int16), np.empty((0, 2), np.float32)):
            self.same(vqns.denoise(empty, 8000), empty)
            self.same(vqns.resample(empty, 8000, 16000), empty)
            self.assertEqual(vqns.speech_segments(empty, 8000), [])

    def test_speech_segments_are_those_of_the_program(self):
        wav = self.folder / "in.wav"
        for rate, channels, options in ((16000, 1, {}), (44100, 2, {"min_pause": 0.05, "min_speech": 0}),
                                        (8000, 1, {"mode": 0}), (8000, 2, {"mode": 3, "min_speech": 1})):
            x = hosts.noisy(wav, rate, channels)
            arguments = [a for k, v in options.items() for a in ("--" + k.replace("_", "-"), v)]
            told = json.loads(hosts.run(hosts.PROGRAM, "vad", wav, "--format", "json", "-q", *arguments).stdout)
            expected = [(s["start"], s["end"]) for s in told["segments"]]
            found = vqns.speech_segments(x, rate, **options)
            self.assertEqual([(round(s, 6), round(e, 6)) for s, e in found], expected)
            self.assertGreater(len(found), 0)
            with vqns.Stream(rate, channels, attenuation_limit=6, speech_mode=options.get("mode", 2)) as stream:
                stream.process(as_float(x))
                stream.flush()
                limits = {k: v for k, v in options.items() if k != "mode"}
                self.assertEqual(stream.speech_segments(**limits), found)

    def test_resample_makes_what_the_program_makes(self):
        wav = self.folder / "in.wav"
        for rate, new_rate, channels in ((16000, 8000, 1), (8000, 44100, 2), (48000, 12345, 1), (16000, 16000, 1)):
            x = hosts.noisy(wav, rate, channels)
            expected = self.resampled(wav, new_rate, "int16")
            self.same(vqns.resample(x, rate, new_rate), expected)
            self.same(vqns.resample(as_float(x[:, 0]), rate, new_rate), as_float(expected[:, 0]))
            self.in_blocks(vqns.Resampler(rate, new_rate, channels), x, expected)
        x[1000:1006, 0] = 0
        odd = as_float(x[:20000])
        odd[1000:1006, 0] = [np.nan, 1.7, -3, np.inf, -np.inf, 0.5 / 32768]
        soundfile.write(wav, odd, 16000, subtype="FLOAT")
        self.same(vqns.resample(odd, 16000, 8000), self.resampled(wav, 8000, "float32"))

    def in_blocks(self, stream, x, expected, ahead=0):
        """Feeds blocks of odd sizes; all that comes out, less what is ahead, must be as expected."""
        sizes, out, at = (1, 441, 0, 7, 40000, 160), [], 0
        while at < len(x):
            size = sizes[len(out) % len(sizes)]
            out.append(stream.process(x[at:at + size]))
            at += size
        self.same(np.concatenate([*out, stream.flush()])[ahead:], expected)
        for ended in (lambda: stream.process(x[:1]), stream.flush):
            with self.assertRaises(ValueError):
                ended()

    def test_streams_take_blocks_of_any_size(self):
        for rate, channels in ((16000, 1), (44100, 2), (37800, 1)):
            x = hosts.noisy(self.folder / "in.wav", rate, channels)
            stream = vqns.Stream(rate, channels)
            self.assertEqual((stream.rate, stream.channels, stream.latency), (rate, channels, hosts.latency(rate)))
            self.in_blocks(stream, x, vqns.denoise(x, rate), stream.latency)
        with stream, self.assertRaises(ValueError):
            stream.close()
            stream.speech_segments()

    def test_settings_act_from_the_next_block_on(self):
        x = hosts.noisy(self.folder / "in.wav")[:, 0]
        late, half = hosts.latency(16000), 40000
        untouched = vqns.denoise(x, 16000)[:half - late]
        for name, value in (("bypass", True), ("attenuation_limit", 0)):
            stream = vqns.Stream(16000)
            out = [stream.process(x[:half])]
            stream.level = False
            setattr(stream, name, value)
            self.assertEqual((getattr(stream, name), stream.level), (value, False))
            out = np.concatenate([*out, stream.process(x[half:]), stream.flush()])[late:]
            self.same(out[:half - late], untouched)
            self.assertFalse(np.array_equal(x[:half], out[:half]))
            self.same(out[half + 160:], x[half + 160:])  # at 16 kHz nothing is left to do
        stream = vqns.Stream(16000, level=False)
        out = [stream.process(x[:half])]
        stream.attenuation_limit = 0
        out = np.concatenate([*out, stream.process(x[half:])])[late:].astype(float)
        wet, hop = vqns.denoise(x, 16000, level=False).astype(float), slice(half - 640, half - 480)
        faded = wet[hop] + np.arange(1, 161) / 160 * (x[hop] - wet[hop])
        self.assertLessEqual(np.abs(out[hop] - faded).max(), 1, "the new limit comes in across one hop")
        self.same(out[:hop.start], wet[:hop.start])
        loud = np.full(4000, 2.5, np.float32)
        self.same(vqns.Stream(48000, bypass=True).process(loud)[hosts.latency(48000) + 480:][:9], loud[:9])

    def test_refuses_what_it_cannot_take(self):
        x = np.zeros(320, np.int16)
        cases = (
            (TypeError, "astype", lambda: vqns.denoise(x.astype(float), 16000)),
            (TypeError, "not >i2", lambda: vqns.denoise(x.astype(">i2"), 16000)),
            (TypeError, "not int64", lambda: vqns.resample([1, 2, 3], 16000, 8000)),
            (TypeError, "whole number", lambda: vqns.denoise(x, 44100.0)),
            (TypeError, "argument", lambda: vqns.denoise(x, 16000, 20)),
            (ValueError, "8000 to 192000", lambda: vqns.denoise(x, 7999)),
            (ValueError, "192001", lambda: vqns.Stream(192001)),
            (ValueError, "x.T", lambda: vqns.denoise(np.zeros((2, 16000), np.int16), 16000)),
            (ValueError, "(2, 2, 2)", lambda: vqns.speech_segments(np.zeros((2, 2, 2), np.float32), 16000)),
            (ValueError, "()", lambda: vqns.denoise(np.int16(3), 16000)),
            (ValueError, "channels, not 0", lambda: vqns.denoise(np.zeros((9, 0), np.int16), 16000)),
            (ValueError, "2 channels expected", lambda: vqns.Stream(16000, 2).process(x)),
            (ValueError, "0 dB", lambda: vqns.denoise(x, 16000, attenuation_limit=-1)),
            (ValueError, "0 dB", lambda: setattr(vqns.Stream(16000), "attenuation_limit", float("nan"))),
            (ValueError, "0, 1, 2 or 3", lambda: vqns.speech_segments(x, 16000, mode=4)),
            (ValueError, "min_pause", lambda: vqns.speech_segments(x, 16000, min_pause=-1)),
            (ValueError, "1000 to 768000", lambda: vqns.resample(x, 16000, 999)),
            (ValueError, "cannot convert", lambda: vqns.resample(x, 768000, 1000)),
        )
        for kind, part, call in cases:
            with self.subTest(part=part), self.assertRaises(kind) as caught:
                call()
            self.assertIn(part, str(caught.exception))

    def test_processing_lets_other_threads_run(self):
        native = vqns._native.Stream(16000, 1, 2)
        frames, started, ended = np.zeros((2_000_000, 1), np.int16), threading.Event(), threading.Event()

        def work():
            started.set()
            native.process(frames, 0.0, False, False)
            ended.set()

        interval = sys.getswitchinterval()
        sys.setswitchinterval(600)  # from now on a thread runs until it gives the lock away
        try:
            thread = threading.Thread(target=work)
            thread.start()
            started.wait()
            time.sleep(0.01)  # work has the lock again, or is without it
            self.assertFalse(ended.is_set())
            with self.assertRaisesRegex(RuntimeError, "another thread"):
                native.process(frames[:1], 0.0, False, False)
        finally:
            sys.setswitchinterval(interval)
            thread.join()
        native.process(frames[:1], 0.0, False, False)

        x = hosts.noisy(self.folder / "in.wav")
        expected, found = vqns.denoise(x, 16000), [None] * 6
        threads = [threading.Thread(target=lambda i=i: found.__setitem__(i, vqns.denoise(x, 16000)))
                   for i in range(len(found))]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        for result in found:
            self.same(result, expected)

    def test_tells_its_version_and_its_types(self):
        info = json.loads(hosts.run(hosts.PROGRAM, "info", "--json").stdout)
        self.assertEqual((vqns.__version__, vqns.model_id), (info["version"], info["model"]))
        stub = ast.parse((Path(vqns.__file__).parent / "_native.pyi").read_text())
        declared = {n.name if isinstance(n, ast.ClassDef) else n.target.id: n for n in stub.body
                    if not isinstance(n, (ast.Import, ast.ImportFrom))}
        self.assertEqual(set(declared), {n for n in dir(vqns._native) if not n.startswith("__")})
        for name in ("Stream", "Resampler"):
            self.assertEqual({n.name for n in declared[name].body} - {"__init__"},
                             {n for n in dir(getattr(vqns._native, name)) if not n.startswith("__")})

    def test_pip_installs_it_without_a_network(self):
        venv, wav = self.folder / "venv", self.folder / "in.wav"
        if subprocess.run([sys.executable, "-m", "venv", "--system-site-packages", venv],
                          capture_output=True).returncode != 0:
            self.skipTest("python3 -m venv does not work (Debian package python3-venv)")
        environment = {k: v for k, v in os.environ.items() if not k.startswith(("PIP_", "PYTHON"))}
        environment["PYTHONDONTWRITEBYTECODE"] = "1"
        if shutil.which("ccache"):
            environment |= {f"CMAKE_{language}_COMPILER_LAUNCHER": "ccache" for language in ("C", "CXX")}
        alone = ["unshare", "--map-root-user", "--net"]  # where that is allowed there is not even a network
        if subprocess.run([*alone, "true"], capture_output=True).returncode != 0:
            alone = []
        subprocess.run([*alone, venv / "bin/pip", "install", "--quiet", "--no-index", SOURCE], check=True,
                       env=environment, cwd=self.folder, timeout=280)
        self.assertEqual(hosts.run(venv / "bin/pip", "show", "vqns", env=environment).stdout.splitlines()[1],
                         f"Version: {vqns.__version__}")
        hosts.noisy(wav)
        done = hosts.run(venv / "bin/python", "-c", "import soundfile, sys, vqns\n"
                         "x, rate = soundfile.read(sys.argv[1], dtype='int16')\n"
                         "soundfile.write(sys.argv[2], vqns.denoise(x, rate), rate)\nprint(vqns.__file__)",
                         wav, self.folder / "out.wav", env=environment, cwd=self.folder)
        installed = Path(done.stdout.strip()).parent
        self.assertTrue(installed.is_relative_to(venv), installed)
        here, there = ({str(p.relative_to(folder)) for p in folder.rglob("*") if "__pycache__" not in p.parts}
                       for folder in (hosts.BUILD / "python/vqns", installed))
        self.assertEqual(there, here)
        self.same(soundfile.read(self.folder / "out.wav", dtype="int16", always_2d=True)[0], hosts.denoised(wav))
        self.assertIn("OUT_TREE", hosts.run(venv / "bin/vqns-corpus", "--help", env=environment).stdout)


hosts.main()
