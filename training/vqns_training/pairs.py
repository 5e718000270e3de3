"""Pairs of recordings to evaluate on: a folder with clean/NAME.wav, noisy/NAME.wav and pairs.json, a list of
{"name", "kind", "snr", "noise", "from"}; without the list every pair of files is of the kind "noisy".

kind     input                                      what should come out
noisy    speech in noise at an SNR                  the speech
clean    speech alone                               the same
talkers  two talkers at once                        both
step     speech in noise, 15 dB louder or softer    the speech, scored after the step ("from", in seconds)
         from the middle on
noise    noise alone                                nothing
music    music alone                                (reported, no target)
after    speech in noise, from the middle on noise  nothing, scored from two seconds after "from" on
         alone
"""
import json
from pathlib import Path

import numpy as np

from . import audio, levels, made_up
from .audio import RATE
from .pool import Pool

SPOKEN = ("noisy", "clean", "talkers", "step")
LEVEL = -26  # dBFS of active speech


def read(folder):
    """Yields (entry, clean, noisy)."""
    top = Path(folder)
    if (top / "pairs.json").exists():
        entries = json.loads((top / "pairs.json").read_text())
    else:
        entries = [{"name": name, "kind": "noisy"} for name in audio.files_under(top / "clean")]
    for entry in entries:
        name = entry["name"] if Path(entry["name"]).suffix else entry["name"] + ".wav"
        clean, noisy = (audio.read(top / side / name) for side in ("clean", "noisy"))
        if len(clean) != len(noisy):
            raise ValueError(f"{name}: the clean and the noisy recording differ in length")
        if entry["kind"] == "noisy" and "snr" not in entry:
            snr = levels.db(levels.active_rms(clean) / levels.rms(noisy - clean))
            entry = {**entry, "snr": int(5 * round(snr / 5)), "noise": "unnamed"}
        yield entry, clean, noisy


class Maker:
    """Makes pairs out of the held-out side of the pools under a folder."""

    def __init__(self, data, seconds, seed):
        self.speech_pool, self.noise_pool = Pool(f"{data}/speech", True), Pool(f"{data}/noise", True)
        self.n, self.rng = int(seconds * RATE), np.random.default_rng(seed)
        self.everything = Pool(f"{data}/noise", None)

    def speech(self, source=None):
        """Half a second of silence, then speech of one source with pauses between its pieces."""
        y, at = np.zeros(self.n, np.float32), RATE // 2
        source = source or self.speech_pool.source(self.rng)
        while at < self.n - RATE // 2:
            x = self.speech_pool.piece(self.rng, min(self.n - at, 4 * RATE), source)
            if levels.active_rms(x) > 1e-4:
                y[at:at + len(x)] = x * levels.gain(LEVEL) / levels.active_rms(x)
            at += len(x) + int(self.rng.uniform(.3, .8) * RATE)
        return y

    def noise(self, name):
        """Of a source of the pool, of "babble" or of "made up", at a level of 1."""
        y, at = np.zeros(self.n, np.float32), 0
        if name == "babble":
            y = sum(self.speech() for _ in range(6))
        elif name == "made up":
            y = made_up.any_kind(self.n, self.rng)
        else:
            pool = self.noise_pool if name in self.noise_pool.sources else self.everything
            while at < self.n:
                x = pool.piece(self.rng, self.n - at, name)
                y[at:at + len(x)] = x
                at += len(x)
        return y / max(levels.rms(y), 1e-6)

    def mixture(self, noise, snr):
        clean = self.speech()
        return clean, clean + self.noise(noise) * levels.gain(LEVEL - snr)

    def every(self, snrs, count):
        """Yields (entry, clean, noisy): `count` for each noise and SNR, and so many of each of the other kinds."""
        noises = [*self.noise_pool.names, "babble", "made up"]
        for noise in noises:
            for snr in snrs:
                for _ in range(count):
                    yield {"kind": "noisy", "snr": snr, "noise": noise}, *self.mixture(noise, snr)
        nothing = np.zeros(self.n, np.float32)
        for noise in noises:
            for _ in range(count):
                yield {"kind": "noise", "noise": noise}, nothing, self.noise(noise) * levels.gain(LEVEL - 10)
        for i in range(len(noises) * count):
            clean = self.speech()
            yield {"kind": "clean"}, clean, clean
            one, other = self.rng.choice(self.speech_pool.names, 2, replace=len(self.speech_pool.names) < 2)
            both = self.speech(one) + self.speech(other)
            yield {"kind": "talkers"}, both, both
            jump = np.ones(self.n, np.float32)
            jump[self.n // 2:] = levels.gain((-15, 15)[i % 2])
            clean, noisy = (v * jump * levels.gain(-7.5) for v in self.mixture(noises[i % len(noises)], 10))
            entry = {"kind": "step", "snr": 10, "noise": noises[i % len(noises)], "from": self.n // 2 / RATE}
            yield entry, clean, noisy
        if "music" in self.everything.sources:
            seen = "music" not in self.noise_pool.sources
            for _ in range(4 * count):
                music = self.noise("music") * levels.gain(LEVEL)
                yield {"kind": "music", "noise": "music", "seen_in_training": seen}, nothing, music
        talking = (np.arange(self.n) < self.n // 2).astype(np.float32)
        for i in range(len(noises) * count):
            clean, noisy = self.mixture(noises[i % len(noises)], 10)
            entry = {"kind": "after", "snr": 10, "noise": noises[i % len(noises)], "from": self.n // 2 / RATE}
            yield entry, clean * talking, noisy - clean * (1 - talking)


def write(folder, pairs):
    top, entries = Path(folder), []
    for side in ("clean", "noisy"):
        (top / side).mkdir(parents=True, exist_ok=True)
    for entry, clean, noisy in pairs:
        fit = min(1, .99 / max(np.abs(noisy).max(), np.abs(clean).max(), 1e-9))  # no clipping that is not meant
        entry = {"name": f"{len(entries):04d}", **entry}
        audio.write(top / "clean" / f"{entry['name']}.wav", clean * fit)
        audio.write(top / "noisy" / f"{entry['name']}.wav", noisy * fit)
        entries.append(entry)
    (top / "pairs.json").write_text(json.dumps(entries, indent=1))
    return entries
