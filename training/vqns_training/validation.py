"""Scores of a network on held-out pieces that never change."""
import numpy as np
import torch

from . import framing, losses
from .mixer import Chances, Mixer

SEED = 99
SETS = {"mixed": Chances(), "clean": Chances(noise_only=0, clean_only=1, telephone_mixture=0, clipping=0, room=0),
        "noise": Chances(noise_only=1, clean_only=0)}


def held_out_batches(folder, shares, pieces, seconds=8.0):
    """{set: batches} of about `pieces` mixtures, and a quarter as many of clean speech and of noise alone."""
    batches = {}
    for name, chances in SETS.items():
        mixer = Mixer(folder, SEED, seconds, held_out=True, shares=shares, chances=chances)
        wanted = max(1, pieces if name == "mixed" else pieces // 4)
        size = min(8, wanted)
        batches[name] = [[torch.from_numpy(v) for v in mixer.batch(i, size)] for i in range(wanted // size)]
    return batches


def level_change(net, batch):
    """Of each piece after its first half second, in dB."""
    noisy = batch[0]
    y = net.denoise(noisy)
    inner = slice(losses.EDGE + framing.RATE // 2, y.shape[1] - losses.EDGE)
    return (y[:, inner].square().mean(1) + 1e-12).log10() * 10 - (noisy[:, inner].square().mean(1) + 1e-12).log10() * 10


@torch.no_grad()
def scores(net, batches, weights):
    device = next(net.parameters()).device
    on_device = {name: [[v.to(device) for v in b] for b in many] for name, many in batches.items()}
    mixed = [losses.measure(net, *b, weights) for b in on_device["mixed"]]
    result = {"loss": np.mean([float(loss) for loss, _ in mixed])}
    for term in mixed[0][1]:
        result[term] = np.mean([float(terms[term]) for _, terms in mixed])
    clean = [losses.measure(net, *b, weights)[1] for b in on_device["clean"]]
    for term, name in (("sdr", "si_sdr"), ("segmental", "segmental_snr")):
        result[name] = -result.pop(term)
        result[f"clean_{name}"] = -np.mean([float(t[term]) for t in clean])
    result["clean_level"] = float(torch.cat([level_change(net, b) for b in on_device["clean"]]).mean())
    result["noise_level"] = float(torch.cat([level_change(net, b) for b in on_device["noise"]]).mean())
    return {k: round(float(v), 5) for k, v in result.items()}
