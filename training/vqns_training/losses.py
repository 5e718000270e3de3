"""What training lowers: errors of compressed spectra, taken on the spectrum of the re-synthesised signal so that they
count what will be heard; speech lost counts more than noise left."""
from dataclasses import dataclass

import torch
import torch.nn.functional as F

from . import framing, intelligibility, perceptual
from .mixer import COMMON_LEVEL

POWER = .3  # of the compression
SEGMENT = 512  # samples of a frame of the segmental signal-to-noise ratio
EDGE = 2 * framing.HOP  # samples at either end that lack a part of the overlap


@dataclass
class Weights:
    """Of the terms, to go on from a trained model."""
    magnitude: float = 1.5
    complex: float = .3
    keep: float = .8  # magnitude lost where there is speech
    wave: float = 0.  # mean absolute error of the samples
    sdr: float = .012  # per dB of scale-invariant signal-to-distortion ratio, up to 30 dB
    segmental: float = .008  # per dB of segmental signal-to-noise ratio, which a wrong level lowers too
    perceptual: float = .11  # per point of opinion score lost; a small share
    intelligibility: float = 1.3  # per unit of correlation of envelopes lost
    windows: tuple = (framing.FRAME,)  # samples; the spectral terms are averaged over them


def short_time_spectrum(x, size):
    """Real and imaginary parts; the library's own frames for its own size."""
    if size == framing.FRAME:
        return framing.spectra(x)
    s = torch.stft(x, size, size // 4, window=framing.hann(size, x.device, x.dtype), center=False, return_complex=True)
    s = torch.view_as_real(s) * (framing.FRAME / size)
    return s[..., 0], s[..., 1]


def compressed(re, im):
    """Magnitude to the power POWER, and the spectrum with that magnitude."""
    power = re * re + im * im + 1e-8
    squeeze = power.pow((POWER - 1) / 2)
    return power.sqrt() * squeeze, re * squeeze, im * squeeze


def spectral_terms(y, s, size):
    ym, yr, yi = compressed(*short_time_spectrum(y, size))
    sm, sr, si = compressed(*short_time_spectrum(s, size))
    return {"magnitude": (ym - sm).square().mean(), "complex": ((yr - sr).square() + (yi - si).square()).mean(),
            "keep": F.relu(sm - ym).square().mean()}


def si_sdr(y, s):
    """Scale-invariant signal-to-distortion ratio per row, in dB."""
    part = (y * s).sum(1, keepdim=True) / (s.square().sum(1, keepdim=True) + 1e-6) * s
    return 10 * torch.log10((part.square().sum(1) + 1e-4) / ((y - part).square().sum(1) + 1e-4))


def segmental_snr(y, s):
    """Mean over a row's frames with speech (within 40 dB of its loudest) of the signal-to-noise ratio, each in -10 to
    35 dB."""
    speech, error = (v.unfold(1, SEGMENT, SEGMENT // 2).square().sum(2) for v in (s, y - s))
    heard = speech > speech.amax(1, keepdim=True) * 1e-4
    ratio = 10 * torch.log10((speech + 1e-6) / (error + 1e-6))
    return (ratio.clamp(-10, 35) * heard).sum(1) / heard.sum(1).clamp(min=1)


def measure(net, noisy, clean, scale, has_speech, weights):
    """(loss, {term: value}) of a batch [piece, sample]; the last two have one value a piece."""
    y = net.denoise(noisy)
    inner = slice(EDGE, y.shape[1] - EDGE)
    y, s = (v[:, inner] * (scale / COMMON_LEVEL)[:, None] for v in (y, clean[:, :y.shape[1]]))  # speech has level 1
    parts = [spectral_terms(y, s, size) for size in weights.windows]
    terms = {name: sum(p[name] for p in parts) / len(parts) for name in parts[0]}
    terms["wave"] = (y - s).abs().mean()
    for name, ratio in (("sdr", si_sdr(y, s).clamp(max=30)), ("segmental", segmental_snr(y, s))):
        terms[name] = -(ratio * has_speech).sum() / has_speech.sum().clamp(min=1)
    for name, lost in (("perceptual", perceptual.lost), ("intelligibility", intelligibility.lost)):
        if getattr(weights, name) or not torch.is_grad_enabled():
            terms[name] = (lost(y, s) * has_speech).sum() / has_speech.sum().clamp(min=1)
    return sum(getattr(weights, name) * value for name, value in terms.items()), terms
