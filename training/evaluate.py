#!/usr/bin/python3
"""Scores the library on pairs of clean and noisy recordings, beside the input itself and Speex's preprocessor.

PAIRS holds clean/ and noisy/ with files of the same names (make_pairs.py makes such a folder). Prints tables, and
writes OUT/scores.json (the means, and every pair) and OUT/report.html (plots over SNR, tables, spectrograms). PESQ and
DNSMOS are scored where the Python modules pesq and speechmos are installed.
"""
import argparse
import json
import sys
from pathlib import Path

import numpy as np

from vqns_training import audio, engines, metrics, pairs, report, scoring

ROOT = Path(__file__).resolve().parent.parent
parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
parser.add_argument("pairs")
parser.add_argument("out")
parser.add_argument("--library", action="append", metavar="[NAME=]FILE",
                    help="libvqns.so to score (default: the release build's); may be given again, for builds with "
                         "other parameter files")
parser.add_argument("--examples", type=int, default=3, help="spectrograms in the report")


def named_engines(libraries):
    found = {}
    for item in libraries or [ROOT / "build/release/ns/libvqns.so"]:
        name, _, path = str(item).rpartition("=")
        found[name or "vqns"] = engines.Vqns(path)
    try:
        found["speex"] = engines.Speex()
    except OSError as missing:
        print(f"without Speex: {missing}", file=sys.stderr)
    return found


def spread_out(items, count):
    return [items[i] for i in np.linspace(0, len(items) - 1, min(count, len(items))).astype(int)]


def main(arguments=None):
    a = parser.parse_args(arguments)
    systems, extra = named_engines(a.library), metrics.optional()

    def progress(done):
        if sys.stderr.isatty():
            print(f"\r{done} pairs", end="", file=sys.stderr)

    results = scoring.score_all(pairs.read(a.pairs), systems, extra, progress)
    summary = scoring.summary(results)
    missing = ", ".join(sorted({"pesq", "dnsmos"} - set(extra)))
    about = {"pairs": f"{len(results)} in {a.pairs}", "not scored": missing or "nothing",
             **{name: f"model {e.model_id}" for name, e in systems.items() if isinstance(e, engines.Vqns)}}
    chosen = {r["name"] for r in spread_out([r for r in results if r["kind"] == "noisy"] or results, a.examples)}
    examples = []
    for entry, clean, noisy in pairs.read(a.pairs):
        if entry["name"] in chosen:
            outputs = {name: e(audio.to_pcm(noisy)) / 32768 for name, e in systems.items()}
            title = f"{entry['name']}: {entry.get('noise', '')}, {entry.get('snr', '')} dB"
            examples.append((title, {"input": noisy, **outputs, "clean": clean}))
    out = Path(a.out)
    out.mkdir(parents=True, exist_ok=True)
    (out / "scores.json").write_text(json.dumps({"about": about, "means": summary, "pairs": results}, indent=1))
    (out / "report.html").write_text(report.page(summary, about, examples))
    print(scoring.text(summary))
    return summary


if __name__ == "__main__":
    main()
