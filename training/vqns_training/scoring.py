"""Scores of engines on pairs, and their means by SNR, by noise and by kind."""
import math

import numpy as np

from . import audio, metrics
from .opinion import opinion
from .pairs import SPOKEN

# name, unit, whether more is better (None: neither)
MEASURES = {"si_sdr": ("SI-SDR", "dB", True), "segmental_snr": ("segmental SNR", "dB", True),
            "stoi": ("STOI", "", True), "lsd": ("log-spectral distance", "dB", False),
            "pesq": ("PESQ-WB", "", True), "dnsmos": ("DNSMOS", "", True), "opinion": ("opinion by P.862.2", "", True),
            "level": ("speech level", "dB", None), "pauses": ("left in pauses", "dB", False),
            "left": ("left", "dB", False)}


def score(entry, clean, noisy, x, extra=None):
    """{measure: value} of one output."""
    first = int(entry.get("from", 0) * audio.RATE)
    clean, noisy, x = clean[first:], noisy[first:], x[first:]
    if entry["kind"] not in SPOKEN:
        return {"left": metrics.left(noisy, x)}
    s = {"si_sdr": metrics.si_sdr(clean, x), "segmental_snr": metrics.segmental_snr(clean, x),
         "stoi": metrics.stoi(clean, x), "lsd": metrics.log_spectral_distance(clean, x),
         "opinion": opinion(clean, x), "level": metrics.level_change(clean, x)}
    if entry["kind"] in ("noisy", "step"):
        s["pauses"] = metrics.left_in_pauses(clean, noisy, x)
    return s | {name: measure(clean, x) for name, measure in (extra or {}).items()}


def score_all(pairs, engines, extra=None, progress=lambda n: None):
    """A list of {**entry, "scores": {engine: {measure: value}}}; the input counts as the engine "input"."""
    results = []
    for entry, clean, noisy in pairs:
        pcm = audio.to_pcm(noisy)
        outputs = {"input": noisy, **{name: engine(pcm).astype(np.float32) / 32768 for name, engine in engines.items()}}
        scores = {name: score(entry, clean, noisy, x, extra) for name, x in outputs.items()}
        results.append({**entry, "scores": scores})
        progress(len(results))
    return results


def mean(values):
    known = [v for v in values if not math.isnan(v)]
    return round(float(np.mean(known)), 4) if known else None


def grouped(results, kind, key):
    """{value of the key: {engine: {measure: mean}}} over the results of a kind, sorted; key None: all in one group."""
    groups = {}
    for r in results:
        if r["kind"] == kind:
            groups.setdefault("all" if key is None else r[key], []).append(r["scores"])
    return {group: {engine: {m: mean([s[engine][m] for s in many]) for m in many[0][engine]} for engine in many[0]}
            for group, many in sorted(groups.items())}


def summary(results):
    s = {"by_snr": grouped(results, "noisy", "snr"), "by_noise": grouped(results, "noisy", "noise"),
         "noise_alone": grouped(results, "noise", "noise")}
    for kind in ("noisy", "clean", "talkers", "step", "noise", "music", "after"):
        s |= {kind: group["all"] for group in [grouped(results, kind, None)] if group}
    return s


def table(groups, title):
    """Plain text: a block a measure, a row a group, a column an engine."""
    engines = list(next(iter(groups.values())))
    measures = list(next(iter(groups.values()))[engines[0]])
    lines = [title]

    def cell(value, m):
        return f"{'-' if value is None else format(value, '.3f' if m == 'stoi' else '.2f'):>12}"

    for m in measures:
        name, unit, _ = MEASURES[m]
        lines.append(f"  {name + (', ' + unit if unit else ''):24}" + "".join(f"{e:>12}" for e in engines))
        for group, by_engine in groups.items():
            lines.append(f"    {group!s:22}" + "".join(cell(by_engine[e][m], m) for e in engines))
    return "\n".join(lines)


def text(s):
    blocks = [table(s["by_snr"], "By SNR in dB"), table(s["by_noise"], "By noise")] if s["by_snr"] else []
    titles = {"noisy": "All noisy speech", "clean": "Clean speech", "talkers": "Two talkers",
              "step": "After a level step", "noise": "Noise alone, after two seconds",
              "music": "Music alone, after two seconds", "after": "Noise two seconds after speech"}
    blocks += [table({"all": s[kind]}, title) for kind, title in titles.items() if kind in s]
    if s["noise_alone"]:
        blocks.append(table(s["noise_alone"], "Noise alone, by noise"))
    return "\n\n".join(blocks)
