"""An HTML page of an evaluation: plots of every measure over SNR, the tables, spectrograms."""
import base64
import html
import io

import matplotlib
import numpy as np

matplotlib.use("Agg")
from matplotlib import pyplot  # noqa: E402

from .scoring import MEASURES, text  # noqa: E402


def image(figure):
    data = io.BytesIO()
    figure.savefig(data, format="png", dpi=80, bbox_inches="tight")
    pyplot.close(figure)
    return f'<img src="data:image/png;base64,{base64.b64encode(data.getvalue()).decode()}">'


def over_snr(by_snr):
    """A plot a measure, a line an engine."""
    snrs, first = list(by_snr), next(iter(by_snr.values()))
    measures = list(next(iter(first.values())))
    figure, axes = pyplot.subplots(-(-len(measures) // 3), 3, figsize=(15, 4 * -(-len(measures) // 3)), squeeze=False)
    for axis, m in zip(axes.flat, measures):
        for engine in first:
            axis.plot(snrs, [np.nan if (v := by_snr[s][engine][m]) is None else v for s in snrs], "o-", label=engine)
        name, unit, better = MEASURES[m]
        name += {True: " (more is better)", False: " (less is better)", None: ""}[better]
        axis.set(title=name, xlabel="SNR, dB", ylabel=unit)
        axis.grid(alpha=.3)
    for axis in axes.flat[len(measures):]:
        axis.axis("off")
    axes.flat[0].legend()
    return image(figure)


def spectrograms(title, signals):
    """{name: samples} above each other, one scale."""
    figure, axes = pyplot.subplots(len(signals), 1, figsize=(14, 2.2 * len(signals)), sharex=True, squeeze=False)
    for axis, (name, x) in zip(axes.flat, signals.items()):
        with np.errstate(divide="ignore"):  # digital silence
            axis.specgram(x, 512, 16000, noverlap=352, vmin=-130, vmax=-40, cmap="magma")
        axis.set(ylabel=name)
    axes.flat[0].set(title=title)
    axes.flat[-1].set(xlabel="s")
    return image(figure)


def page(summary, about, examples):
    """about: {what: text}; examples: [(title, {name: samples})]."""
    parts = ["<!doctype html><meta charset=utf-8><title>vqns: evaluation</title>",
             "<style>body{font-family:sans-serif;margin:2em}</style><h1>Evaluation</h1><ul>",
             *(f"<li>{html.escape(k)}: {html.escape(str(v))}" for k, v in about.items()), "</ul>"]
    if summary["by_snr"]:
        parts.append(over_snr(summary["by_snr"]))
    parts.append(f"<pre>{html.escape(text(summary))}</pre>")
    return "\n".join(parts + [spectrograms(*example) for example in examples])
