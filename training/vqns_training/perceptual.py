"""How good speech sounds, differentiable: what `opinion` measures, of whole pieces. The input filter and the smoothing of
the gain are finite here."""
import functools

import torch
import torch.nn.functional as F

from . import hearing
from .audio import RATE
from .hearing import FRAME, HOP


@functools.lru_cache(maxsize=None)
def tables(device, dtype):
    return tuple(torch.from_numpy(v).to(device, dtype)
                 for v in (hearing.bins_to_bands(), hearing.THRESHOLD, hearing.EXPONENT, hearing.WIDTH))


def levelled(x):
    """Rows at the standard's level, taken of the telephone band."""
    s = torch.view_as_real(torch.fft.rfft(x)).square().sum(-1)
    hertz = torch.arange(s.shape[1], device=x.device) * (RATE / x.shape[1])
    band = (hertz >= hearing.TELEPHONE_BAND[0]) & (hertz <= hearing.TELEPHONE_BAND[1])
    power = 2 * (s * band).sum(1, keepdim=True) / x.shape[1] ** 2
    return x * (hearing.POWER / (power + 1e-9)).sqrt()


def intensities(x):
    """Power of a row's frames in Bark bands, [row, frame, band]."""
    window = torch.hann_window(FRAME, device=x.device, dtype=x.dtype)
    s = torch.stft(x, FRAME, HOP, window=window, center=False, return_complex=True)
    return torch.view_as_real(s).square().sum(-1).transpose(1, 2) @ tables(x.device, x.dtype)[0]


def audible(intensity, factor=1):
    """Power [..., 1] above so many times the threshold, without the lowest band."""
    threshold = tables(intensity.device, intensity.dtype)[1] * factor
    return (intensity * (intensity > threshold))[..., 1:].sum(-1, keepdim=True)


def loudness(intensity):
    """Zwicker's law, in sone a Bark."""
    _, threshold, exponent, _ = tables(intensity.device, intensity.dtype)
    above = (.5 + .5 * intensity / threshold).clamp(min=1) ** exponent - 1
    return hearing.LOUDNESS * (threshold / .5) ** exponent * above


def compensated(clean, heard):
    """Both, without what a fixed colour and slow changes of the level do: hardly heard, they count little."""
    threshold = tables(clean.device, clean.dtype)[1] * 100
    speech = audible(clean, 100) >= hearing.POWER
    colour = [(v * (v > threshold) * speech).mean(1, keepdim=True) + 1000 for v in (heard, clean)]
    clean = clean * (colour[0] / colour[1]).clamp(.01, 100)
    gain = (audible(clean) + 5e3) / (audible(heard) + 5e3)
    smooth = torch.tensor([.2 ** 4, .8 * .2 ** 3, .8 * .2 ** 2, .8 * .2, .8], device=gain.device, dtype=gain.dtype)
    gain = F.conv1d(F.pad(gain.transpose(1, 2), (4, 0), mode="replicate"), smooth[None, None]).transpose(1, 2)
    return clean, heard * gain.clamp(3e-4, 5)


def norm(disturbance, power):
    """Of frames over the bands but the lowest."""
    width = tables(disturbance.device, disturbance.dtype)[3][1:]
    mean = ((disturbance.abs()[..., 1:] * width + 1e-9) ** power).sum(-1) / width.sum()
    return mean ** (1 / power) * width.sum()


def over_time(frames):
    """Root mean square of a worst of every third of a second."""
    parts = frames.unfold(1, 20, 10)
    return ((parts ** 6).mean(2) + 1e-9).pow(1 / 3).mean(1).sqrt()


def score(y, s):
    """Opinion score, 1 to 4.6, of rows `y` against clean rows `s`, half a second or longer."""
    clean, heard = compensated(*(intensities(levelled(v)) for v in (s, y)))
    a, b = loudness(clean), loudness(heard)
    masked = .25 * torch.minimum(a, b)
    difference = F.relu(b - a - masked) - F.relu(a - b - masked)
    # What has been added disturbs more than what has been left out.
    ratio = ((heard + 50) / (clean + 50)) ** 1.2
    asymmetry = torch.where(ratio < 3, torch.zeros_like(ratio), ratio.clamp(max=12))
    emphasis = ((audible(clean)[..., 0] + 1e5) / 1e7) ** -.04  # of soft frames
    symmetric, added = ((norm(d, power) * emphasis).clamp(max=45)
                        for d, power in ((difference, 2), (difference * asymmetry, 1)))
    return opinion_of(4.5 - .1 * over_time(symmetric) - .0309 * over_time(added))


def opinion_of(raw):
    """The scale of P.862.2."""
    return .999 + 4 * torch.sigmoid(1.3669 * raw - 3.8224)


def lost(y, s):
    """Points of opinion score that rows `y` lack."""
    return opinion_of(torch.tensor(4.5)) - score(y, s)
