#!/usr/bin/python3
"""Makes pairs of clean and noisy recordings for evaluate.py out of the held-out side of packed pools."""
import argparse

from vqns_training import pairs

parser = argparse.ArgumentParser(description=__doc__)
parser.add_argument("data", help="folder with the pools speech and noise (pack.py makes them)")
parser.add_argument("out")
parser.add_argument("--snr", type=int, nargs="+", default=[-5, 0, 5, 10, 15, 20])
parser.add_argument("--count", type=int, default=2, help="pairs for each noise and SNR")
parser.add_argument("--seconds", type=float, default=8)
parser.add_argument("--seed", type=int, default=7)

if __name__ == "__main__":
    a = parser.parse_args()
    entries = pairs.write(a.out, pairs.Maker(a.data, a.seconds, a.seed).every(a.snr, a.count))
    print(f"{a.out}: {len(entries)} pairs, {len(entries) * a.seconds / 60:.0f} minutes")
