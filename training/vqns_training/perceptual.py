"""How much worse speech sounds, differentiable: disturbances of the loudness in Bark bands, after ITU-T P.862's model of
hearing, without its alignment in time (pieces are aligned) and its compensations of linear distortion (the level and the
colour of speech are to be kept)."""
import functools

import torch

from .framing import RATE

FRAME, HOP = 512, 256
LEVEL = 79  # dB sound pressure level at which a piece's speech is played
BANDS_A_BARK = 2
ZWICKER = .23  # exponent of loudness over intensity


def bark(hertz):
    """Zwicker and Terhardt 1980."""
    return 13 * torch.atan(.76e-3 * hertz) + 3.5 * torch.atan((hertz / 7500) ** 2)


def hearing_threshold(hertz):
    """In dB sound pressure level: Terhardt 1979."""
    k = hertz / 1000
    return 3.64 * k ** -.8 - 6.5 * torch.exp(-.6 * (k - 3.3) ** 2) + 1e-3 * k ** 4


@functools.lru_cache(maxsize=None)
def bands(device, dtype):
    """(Bins of the transform to bands [bin, band], intensity at the threshold of hearing [band], exponent [band])."""
    hertz = torch.arange(1, FRAME // 2 + 1, dtype=torch.float64) * RATE / FRAME
    index = (bark(hertz) * BANDS_A_BARK).long()
    index = torch.unique(index, return_inverse=True)[1]  # narrow low bands hold no bin: they fall away
    belongs = torch.zeros(len(hertz) + 1, int(index.max()) + 1, dtype=torch.float64)
    belongs[torch.arange(1, len(hertz) + 1), index] = 1
    centre = (belongs[1:] * hertz[:, None]).sum(0) / belongs.sum(0)
    threshold = 10 ** (hearing_threshold(centre) / 10)
    # Loudness grows faster at low frequencies.
    exponent = ZWICKER * (6 / (bark(centre) + 2)).clamp(1, 2) ** .15
    return tuple(v.to(device, dtype) for v in (belongs, threshold, exponent))


def intensities(x):
    """Power of a row's frames in Bark bands, [row, frame, band]."""
    window = torch.hann_window(FRAME, device=x.device, dtype=x.dtype)
    power = torch.view_as_real(torch.stft(x, FRAME, HOP, window=window, center=False, return_complex=True)).square().sum(-1)
    # A row's mean power over the sum of bins: the window's energy and the other half of the spectrum.
    return power.transpose(1, 2) @ bands(x.device, x.dtype)[0] * (2 / (FRAME * window.square().sum()))


def loudness(intensity):
    """Zwicker's law, in sone a Bark; a tone of 1 kHz at 40 dB has about one sone."""
    _, threshold, exponent = bands(intensity.device, intensity.dtype)
    above = (.5 + .5 * intensity / threshold).clamp(min=1) ** exponent - 1
    return .1866 * (threshold / .5) ** exponent * above


def disturbance(y, s):
    """How far rows `y` sound from clean rows `s` of level 1 while active, in points of opinion score lost."""
    scale = 10 ** (LEVEL / 10)
    clean, heard = intensities(s) * scale, intensities(y) * scale
    a, b = loudness(clean), loudness(heard)
    difference = ((a - b).abs() - .25 * torch.minimum(a, b)).clamp(min=0)  # what lies closer is masked
    # What has been added disturbs more than what has been left out.
    ratio = ((heard + 50) / (clean + 50)) ** 1.2
    asymmetry = torch.where(ratio < 3, torch.zeros_like(ratio), ratio.clamp(max=12))
    emphasis = ((clean.sum(-1) + 1e5) / 1e7) ** -.04  # of soft frames
    width, count = 1 / BANDS_A_BARK, clean.shape[-1]
    symmetric = ((difference.pow(3).mean(-1) + 1e-9) ** (1 / 3)) * (count * width)
    asymmetric = (difference * asymmetry).sum(-1) * width
    return sum(points * (d * emphasis).clamp(max=45) for points, d in ((.1, symmetric), (.0309, asymmetric))).mean(1)
