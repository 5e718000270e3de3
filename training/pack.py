#!/usr/bin/python3
"""Packs a folder of audio (WAV, FLAC, Ogg) into a pool for training: 16 kHz samples with an index."""
import argparse
import sys

from vqns_training import pool
from vqns_training.audio import RATE

parser = argparse.ArgumentParser(description=__doc__)
parser.add_argument("folder", help="its first-level folders are the sources, which have shares of their own")
parser.add_argument("out", help="the pool: writes OUT.pcm and OUT.json; training looks for DATA/speech, noise, rooms")
parser.add_argument("--one-in", type=int, default=25, help="one recording in this many is held out")
parser.add_argument("--seed", type=int, default=0, help="of the choice")
parser.add_argument("--one-voice", nargs="*", default=[], metavar="SOURCE",
                    help="sources with the same speakers in all files: stay whole on one side")
parser.add_argument("--jobs", type=int, default=2, help="decoding processes")

if __name__ == "__main__":
    a = parser.parse_args()
    try:
        files = pool.pack(a.folder, a.out, a.one_in, a.seed, a.one_voice, a.jobs)["files"]
    except ValueError as failure:
        sys.exit(f"pack.py: {failure}")
    for side, held_out in (("training", False), ("held out", True)):
        chosen = [f["samples"] for f in files if f["held_out"] == held_out]
        print(f"{side}: {len(chosen)} files, {sum(chosen) / RATE / 3600:.2f} h")
