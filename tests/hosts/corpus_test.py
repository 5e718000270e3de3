"""The corpus command on clusters of this machine: killed workers, killing files, interrupts, resuming."""
import importlib.util
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path
from unittest import mock

import hosts
from hosts import np, soundfile

if importlib.util.find_spec("distributed") is None:
    hosts.skip("Dask", "python3-distributed")
if not list(hosts.BUILD.glob("python/vqns/_native.*.so")):
    hosts.skip("the Python module, built only with its headers,", "pybind11-dev, python3-dev")

ODD_NAME = os.fsdecode(b"caf\xe9 'n'\n.WAV")  # not UTF-8
KILLER = """
import os, signal, soundfile
class SoundFile(soundfile.SoundFile):
    def __init__(self, name, *arguments, **options):
        if b"killer" in name:
            os.kill(os.getpid(), signal.SIGKILL)
        super().__init__(name, *arguments, **options)
soundfile.SoundFile = SoundFile
"""


class Corpus(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.source, self.target, self.cwd = (self.folder / name for name in ("in", "out", "cwd"))
        for place in (self.source / "a/b", self.cwd):
            place.mkdir(parents=True)
        # So that a terminal's Ctrl-C reaches the command even where this test runs in the background.
        signal.signal(signal.SIGINT, signal.default_int_handler)

    def start(self, *options):
        python_path = os.pathsep.join([str(hosts.BUILD / "python"), str(self.folder)])
        return subprocess.Popen(
            [sys.executable, "-B", "-m", "vqns.corpus", self.source, self.target, "--workers", "2", *map(str, options)],
            cwd=self.cwd, env={**os.environ, "PYTHONPATH": python_path}, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, text=True, start_new_session=True)

    def finish(self, command, status):
        """The last line that the command prints. It leaves no temporary file anywhere."""
        last_line = self.end_of(command, status)
        self.assertEqual(list(self.target.rglob("*.vqns-partial")), [])
        self.assertEqual(list(self.cwd.iterdir()), [])
        return last_line

    def end_of(self, command, status):
        """The last line that the command prints."""
        printed = command.communicate(timeout=120)[0]
        self.assertEqual(command.returncode, status, printed)
        return printed.splitlines()[-1]

    def run_to_its_end(self, status, *options):
        return self.finish(self.start(*options), status)

    def journal(self):
        """Names in the order in which they were finished."""
        return [line["file"] for line in self.journal_lines() if "seconds" in line]

    def journal_lines(self):
        return [json.loads(line) for line in (self.target / ".vqns-corpus.jsonl").read_text().splitlines()]

    def report(self):
        lines = (self.target / "vqns-corpus-failed.jsonl").read_text().splitlines()
        told = [json.loads(line) for line in lines]
        self.assertEqual(len({t["file"] for t in told}), len(told))
        return {t["file"]: t["error"] for t in told}

    def outputs(self):
        """Times of modification of the sound files."""
        return {str(p.relative_to(self.target)): p.stat().st_mtime_ns for p in self.target.rglob("*")
                if p.is_file() and not p.name.endswith(".jsonl")}

    def writer_of_a_partial(self, command):
        """The process of a worker that has an unfinished file open."""
        while command.poll() is None:
            for process in Path("/proc").glob("[0-9]*"):
                try:
                    if int((process / "stat").read_text().rsplit(")", 1)[1].split()[1]) == command.pid and any(
                            os.readlink(d).endswith(".vqns-partial") for d in (process / "fd").iterdir()):
                        return int(process.name)
                except (OSError, IndexError):
                    continue  # gone meanwhile
            time.sleep(0.002)
        self.fail(command.communicate()[0])

    def check_like_the_program(self, *options):
        """Every output has format, rate, channels and samples of what the program makes of the input."""
        for name in self.outputs():
            with soundfile.SoundFile(os.fsencode(self.source / name)) as was, \
                    soundfile.SoundFile(os.fsencode(self.target / name)) as is_now:
                for what in ("format", "subtype", "samplerate", "channels", "frames", "title"):
                    self.assertEqual(getattr(is_now, what), getattr(was, what), name)
                found = is_now.read(dtype="int16", always_2d=True)
            expected = self.folder / ("expected" + Path(name).suffix)
            hosts.run(hosts.PROGRAM, "denoise", "--quiet", *options, os.fsencode(self.source / name).decode(
                "utf-8", "surrogateescape"), expected)
            wanted = soundfile.read(expected, dtype="int16", always_2d=True)[0]
            np.testing.assert_array_equal(found, wanted, err_msg=name)

    def test_kills_failures_and_resuming(self):
        x = hosts.noisy(self.source / "a/plain.wav")
        hosts.noisy(self.source / "a/b/stereo 44.1.flac", 44100, 2)
        soundfile.write(self.source / "a/24 bit.wav", x, 16000, subtype="PCM_24")
        soundfile.write(self.source / "a/float.aiff", x.astype(np.float32) / 32768, 16000, subtype="FLOAT")
        soundfile.write(self.source / "a/8 bit.wav", x, 16000, subtype="PCM_U8")
        soundfile.write(self.source / "a/law.au", x, 16000, subtype="ALAW")
        with soundfile.SoundFile(self.source / "titled.ogg", "w", 16000, 1) as titled:
            titled.title = "Prüfung"
            titled.write(x)
        shutil.copy(self.source / "a/plain.wav", os.fsencode(self.source / ODD_NAME))
        (self.source / "a/b/back").symlink_to(self.source)
        (self.source / "c/d").mkdir(parents=True)
        shutil.copy(self.source / "a/plain.wav", self.source / "c/d/e.wav")
        (self.source / "b").symlink_to(self.source / "c/d")  # a folder under two names
        long = np.tile(hosts.noisy(self.source / "long.wav", 48000, 2), (4, 1))
        soundfile.write(self.source / "long.wav", long, 48000)
        speech = soundfile.read(hosts.SOURCE / "samples/hum.flac", dtype="int16")[0]
        soundfile.write(self.folder / "speech.wav", np.tile(speech, 3), 16000)
        hosts.run(hosts.PROGRAM, "resample", "-q", self.folder / "speech.wav", self.source / "song.mp3",
                  "--rate", 44100)  # frames of it need what the ones before left
        good = {"a/plain.wav", "a/b/stereo 44.1.flac", "a/24 bit.wav", "a/float.aiff", "a/8 bit.wav", "a/law.au",
                "titled.ogg", ODD_NAME, "long.wav", "song.mp3", "b/e.wav", "c/d/e.wav"}
        plain = (self.source / "a/plain.wav").read_bytes()
        # Of the first, the header is too long for libsndfile's log.
        long_header = plain[:36] + 100 * b"Note\4\0\0\0text" + plain[36:50001]
        bad = {"a/long.wav": (long_header, "truncated"), "a/junk.wav": (b"what is this?", "recognised"),
               "empty.flac": (b"", "empty"), "a/b/cut.wav": (plain[:50001], "truncated"), "killer.wav": (plain, "worker"),
               "cut.flac": ((self.source / "a/b/stereo 44.1.flac").read_bytes()[:99999], "truncated")}
        for name, (content, _) in bad.items():
            (self.source / name).write_bytes(content)
        for aside in ("notes.txt", ".hidden.wav", "a/._plain.wav"):
            (self.source / aside).write_bytes(b"no sound")
        (self.folder / "sitecustomize.py").write_text(KILLER)

        # A worker is killed within a file; another file kills every worker that takes it up.
        command = self.start()
        victim = self.writer_of_a_partial(command)
        os.kill(victim, signal.SIGKILL)
        self.assertLess(len(self.outputs()), len(good))
        self.assertIn(f"{len(good)} files done", self.finish(command, 1))
        self.assertEqual(set(self.outputs()), good)
        self.assertEqual(sorted(self.journal()), sorted(good))
        told = self.report()
        self.assertEqual(set(told), set(bad))
        for name, (_, reason) in bad.items():
            self.assertIn(reason, told[name])
        self.check_like_the_program()

        # What is done stays; what was wrong and is right now, has changed or has been lost is done.
        before = self.outputs()
        (self.source / "a/junk.wav").write_bytes(plain)
        for name in bad.keys() - {"a/junk.wav"}:
            (self.source / name).unlink()
        os.utime(self.source / "a/law.au")
        (self.target / "titled.ogg").unlink()
        (self.target / "a/24 bit.wav").write_bytes(b"cut short")
        with open(self.target / ".vqns-corpus.jsonl", "a") as journal:
            journal.write('{"file": "a/pl')  # as a crash leaves it
        self.assertIn("4 files done", self.run_to_its_end(0))
        again = {n for n, time_done in self.outputs().items() if time_done != before.get(n)}
        self.assertEqual(again, {"a/junk.wav", "a/law.au", "titled.ogg", "a/24 bit.wav"})
        self.assertFalse((self.target / "vqns-corpus-failed.jsonl").exists())
        self.assertIn("0 files done", self.run_to_its_end(0))
        self.check_like_the_program()

    def test_an_interrupted_run_goes_on(self):
        options = ("--attenuation-limit", 9, "--no-level")
        hosts.noisy(self.source / "a/0.wav")
        names = {f"a/{i}.wav" for i in range(24)}
        for name in names - {"a/0.wav"}:
            shutil.copy(self.source / "a/0.wav", self.source / name)
        command = self.start(*options)
        while len(self.outputs()) < 4 and command.poll() is None:
            time.sleep(0.005)
        self.assertIn("another run", self.end_of(self.start(*options), 2))
        self.writer_of_a_partial(command)
        os.killpg(command.pid, signal.SIGINT)
        self.assertIn("goes on from here", self.finish(command, 130))
        done = {name: self.outputs()[name] for name in self.journal()}
        self.assertTrue(4 <= len(done) < len(names), done)
        self.assertIn(f"{len(done)} were done already", self.run_to_its_end(0, *options))
        self.assertEqual(sorted(self.journal()), sorted(names))
        self.assertEqual(set(self.outputs()), names)
        self.assertEqual({name: self.outputs()[name] for name in done}, done)
        wanted = hosts.denoised(self.source / "a/0.wav", *options)
        for name in names:
            np.testing.assert_array_equal(soundfile.read(self.target / name, dtype="int16", always_2d=True)[0], wanted)

        # Other settings make it all anew; nothing is run where it would do harm.
        for name in names - {"a/0.wav", "a/1.wav"}:
            (self.source / name).unlink()
        self.assertIn("2 files done", self.run_to_its_end(0, "--suffixes", ".wav,.flac"))
        # What a run with other settings was at when it was ended may be its own.
        command = self.start(*options)
        self.writer_of_a_partial(command)
        command.terminate()
        command.communicate(timeout=120)
        self.assertEqual(command.returncode, 143)
        at_work = self.target / self.journal_lines()[-1]["file"]
        at_work.write_bytes(bytes(at_work.stat().st_size))
        self.run_to_its_end(0)
        wanted = hosts.denoised(self.source / "a/0.wav")
        np.testing.assert_array_equal(soundfile.read(at_work, dtype="int16", always_2d=True)[0], wanted)
        for trees in ((self.source, self.source / "a"), (self.source, self.folder), (self.cwd / "none", self.target)):
            refused = subprocess.run([sys.executable, "-B", "-m", "vqns.corpus", *trees], capture_output=True,
                                     env={**os.environ, "PYTHONPATH": str(hosts.BUILD / "python")})
            self.assertEqual(refused.returncode, 2, refused.stderr)

    def test_a_cluster_does_the_work_if_it_sees_both_trees(self):
        hosts.noisy(self.source / "a/0.wav")
        path = str(hosts.BUILD / "python")
        sys.path.insert(0, path)
        self.addCleanup(sys.path.remove, path)
        with mock.patch.dict(os.environ, {"PYTHONPATH": path}):
            from distributed import LocalCluster
            from vqns.corpus import run
            with LocalCluster(n_workers=1, threads_per_worker=2, dashboard_address=None, processes=False,
                              protocol="tcp", local_directory=self.folder / "dask") as cluster:
                address = cluster.scheduler_address
                command = subprocess.run([sys.executable, "-B", "-m", "vqns.corpus", self.source, self.target,
                                          "--scheduler", address], capture_output=True, text=True)
                self.assertEqual(command.returncode, 0, command.stderr)
                self.check_like_the_program()
                with self.assertRaisesRegex(run.CannotRun, "does not see"), \
                        run.cluster_client(address, str(self.source), str(self.cwd)):
                    pass


hosts.main()
