"""Small recordings for tests: every file its own pitch, so that it can be told where a sound came from."""
import tempfile
import unittest
from pathlib import Path

import numpy as np
import soundfile

from vqns_training import pool

RATE = 16000


def tone(frequency, seconds, rate=RATE):
    """Half a second on, a quarter off: something with active frames and pauses."""
    t = np.arange(int(seconds * rate)) / rate
    return (.2 * np.sin(2 * np.pi * frequency * t) * (t % .75 < .5)).astype(np.float32)


def write_tree(folder, files):
    """files: {path: (samples, rate)}."""
    for name, (x, rate) in files.items():
        path = Path(folder) / name
        path.parent.mkdir(parents=True, exist_ok=True)
        soundfile.write(path, x, rate)


def level_at(x, frequency):
    """Amplitude of a tone in x."""
    t = np.arange(len(x)) / RATE
    return 2 * abs(np.mean(x * np.exp(-2j * np.pi * frequency * t)))


SPEECH = {f"reader{i}/{i}.wav": 300 + 100 * i for i in range(12)}  # file: pitch
NOISE = {f"machine/{i}.flac": 2000 + 150 * i for i in range(12)}


def make_pools(top):
    """Pools of speech and noise under the folder; returns for each {file: held out}."""
    sides = []
    for name, files in (("speech", SPEECH), ("noise", NOISE)):
        write_tree(Path(top) / "in" / name, {n: (tone(f, 5), RATE) for n, f in files.items()})
        index = pool.pack(Path(top) / "in" / name, Path(top) / name, one_in=3)["files"]
        sides.append({f["file"]: f["held_out"] for f in index})
    return sides


class WithPools(unittest.TestCase):
    """Has pools of speech and noise in a folder of its own."""

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.top = Path(folder.name)
        cls.speech, cls.noise = make_pools(cls.top)


def speech_like(seconds, seed):
    """Harmonics of a wandering pitch under a syllable envelope."""
    rng, n = np.random.default_rng(seed), int(seconds * RATE)
    t = np.arange(n) / RATE
    phase = 2 * np.pi * np.cumsum(120 + 40 * np.sin(2 * np.pi * .7 * t)) / RATE
    voice = sum(np.sin(k * phase + rng.uniform(0, 6)) / k for k in range(1, 40))
    envelope = np.interp(t * 10, np.arange(int(seconds * 10) + 2), rng.uniform(0, 1, int(seconds * 10) + 2) ** 2)
    return (.1 * voice * envelope + 1e-4 * rng.standard_normal(n)).astype(np.float32)
