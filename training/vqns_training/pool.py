"""Pools of recordings: folders of audio packed into one array of 16 kHz samples with an index.

NAME.pcm   16-bit samples, file behind file
NAME.json  {"one_in": .., "seed": .., "one_voice": [..], "files": [{"file", "source", "offset", "samples", "held_out"}]}

A source is a first-level folder. The recordings of the validation set are chosen by a hash of their names, so that
they stay chosen when others are added: one file in `one_in`, where a file is a speaker or a recording of its own;
folders named under `one_voice` hold the same speakers throughout and stay on one side whole.
"""
import json
import multiprocessing
import sys
import zlib
from pathlib import Path

import numpy as np
import soundfile

from . import audio, levels

SHORTEST = 1600  # samples; shorter files are left out


def split_unit(file, one_voice):
    source = Path(file).parts[0]
    return source if source in one_voice else file


def is_held_out(unit, one_in, seed):
    return zlib.crc32(unit.encode(), seed) % one_in == 0


def decode(path):
    """Samples, or what is wrong with the file."""
    try:
        return audio.to_pcm(audio.read(path))
    except soundfile.LibsndfileError as error:
        return error.error_string.rstrip(".")


def pack(folder, out, one_in=25, seed=0, one_voice=(), jobs=1):
    """Packs every audio file under the folder into the pool OUT; returns the index. Files that cannot be read are named
    on standard error and left out."""
    names = audio.files_under(folder)
    if not names:
        raise ValueError(f"{folder}: no audio files")
    missing = set(one_voice) - {Path(n).parts[0] for n in names}
    if missing:
        raise ValueError(f"{folder}: no such folders: {', '.join(sorted(missing))}")
    files, offset = [], 0
    Path(out).parent.mkdir(parents=True, exist_ok=True)
    with multiprocessing.get_context("spawn").Pool(jobs) as workers, open(f"{out}.pcm", "wb") as samples:
        for name, x in zip(names, workers.imap(decode, [str(Path(folder) / n) for n in names])):
            if isinstance(x, str):
                print(f"{name}: {x}; left out", file=sys.stderr)
                continue
            if len(x) < SHORTEST:
                continue
            samples.write(x.tobytes())
            files.append({"file": name, "source": Path(name).parts[0], "offset": offset, "samples": len(x),
                          "held_out": is_held_out(split_unit(name, one_voice), one_in, seed)})
            offset += len(x)
    index = {"one_in": one_in, "seed": seed, "one_voice": sorted(one_voice), "files": files}
    Path(f"{out}.json").write_text(json.dumps(index, indent=1))
    return index


class Pool:
    """The training or the validation side of a packed pool, drawn by source: a source's share grows with the square
    root of its length, times its entry in `shares`."""

    def __init__(self, base, held_out, shares=None):
        self.samples = np.memmap(f"{base}.pcm", np.int16, mode="r")
        everything = json.loads(Path(f"{base}.json").read_text())["files"]
        files = [f for f in everything if held_out is None or f["held_out"] == held_out]
        if not files:
            raise ValueError(f"{base}: nothing on the {'validation' if held_out else 'training'} side")
        self.sources = {}
        for f in files:
            self.sources.setdefault(f["source"], []).append(f)
        self.names = sorted(self.sources)
        self.longest = max(f["samples"] for f in files)
        self.levels = {}
        weight = [(shares or {}).get(n, 1) * sum(f["samples"] for f in self.sources[n]) ** .5 for n in self.names]
        self.share = np.array(weight) / sum(weight)

    def source(self, rng):
        return self.names[rng.choice(len(self.names), p=self.share)]

    def file(self, entry):
        """A whole recording."""
        return self.samples[entry["offset"]:entry["offset"] + entry["samples"]].astype(np.float32) / 32768

    def level(self, entry):
        """Of a whole recording, active parts alone."""
        if entry["offset"] not in self.levels:
            self.levels[entry["offset"]] = levels.active_rms(self.file(entry))
        return self.levels[entry["offset"]]

    def stretch(self, rng, longest, source=None):
        """(A random stretch of up to `longest` samples from one recording, the recording's entry)."""
        files = self.sources[source or self.source(rng)]
        entry = files[rng.integers(len(files))]
        offset, count = entry["offset"], entry["samples"]
        if count > longest:
            offset, count = offset + int(rng.integers(count - longest + 1)), longest
        return self.samples[offset:offset + count].astype(np.float32) / 32768, entry

    def piece(self, rng, longest, source=None):
        return self.stretch(rng, longest, source)[0]
