"""How much of the speech could be understood, differentiable: correlation of short-time envelopes in third-octave bands
(Taal et al. 2011), at the rate of the speech and with silent frames dropped from the envelopes rather than from the
samples."""
import functools

import torch

from .framing import RATE

FRAME, HOP, POINTS = 410, 205, 512  # the measure's 25.6 ms and 12.8 ms
SEGMENT = 30  # frames
CLIPPING = 1 + 10 ** (15 / 20)  # a band's envelope counts up to 15 dB of distortion
SILENCE = 1e-4  # power under that of the loudest frame
SOFT = .05  # added to a segment's norm where speech has level 1: bands without speech pull at nothing


@functools.lru_cache(maxsize=None)
def third_octaves(device, dtype):
    """Ones [bin, band]: 15 bands from 150 Hz on."""
    hertz = torch.arange(POINTS // 2 + 1, dtype=torch.float64)[:, None] * RATE / POINTS
    centres = 150 * 2 ** (torch.arange(15, dtype=torch.float64) / 3)
    return ((hertz >= centres * 2 ** (-1 / 6)) & (hertz < centres * 2 ** (1 / 6))).to(device, dtype)


def envelopes(x):
    """(Magnitudes in bands [row, frame, band], power of frames [row, frame])."""
    window = torch.hann_window(FRAME, device=x.device, dtype=x.dtype)
    s = torch.stft(x, POINTS, HOP, FRAME, window, center=False, return_complex=True)
    power = torch.view_as_real(s).square().sum(-1).transpose(1, 2)
    return (power @ third_octaves(x.device, x.dtype) + 1e-4).sqrt(), power.sum(-1)


def direction(segments):
    """Segments [..., frame] without their mean, of norm just under 1."""
    centred = segments - segments.mean(-1, keepdim=True)
    return centred / (centred.norm(dim=-1, keepdim=True) + SOFT)


def lost(y, s):
    """One minus the mean correlation over segments and bands, for each of the rows `y` against clean rows `s` of level 1
    while active; 0 where there is too little speech to tell."""
    (heard, _), (clean, power) = envelopes(y), envelopes(s)
    kept = power > power.amax(1, keepdim=True) * SILENCE
    rows = []
    for a, b, frames in zip(heard, clean, kept):
        if frames.sum() < SEGMENT:
            rows.append(a.new_zeros(()))
            continue
        a, b = (v[frames].unfold(0, SEGMENT, 1) for v in (a, b))
        a = torch.minimum(a * (b.norm(dim=-1, keepdim=True) / a.norm(dim=-1, keepdim=True)), b * CLIPPING)
        rows.append(1 - (direction(a) * direction(b)).sum(-1).mean())
    return torch.stack(rows)
