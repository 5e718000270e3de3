"""From samples to spectra and back, as the library does it: 480-sample frames every 160, a periodic Hann window on
the way in and on the way out, 512-point transforms."""
import functools

import torch
import torch.nn.functional as F

RATE, HOP, FRAME, POINTS, BINS = 16000, 160, 480, 512, 257
WINDOW_GAIN = 1.125  # of the overlapping squared windows


@functools.lru_cache(maxsize=None)
def hann(size, device, dtype):
    return torch.hann_window(size, device=device, dtype=dtype)


def spectra(x):
    """[batch, samples] to real and imaginary parts [frame, batch, bin]; samples short of a hop are dropped."""
    hops = x[:, :x.shape[1] // HOP * HOP].reshape(len(x), -1, HOP).transpose(0, 1)
    frames = torch.cat((hops[:-2], hops[1:-1], hops[2:]), -1)
    s = torch.view_as_real(torch.fft.rfft(frames * hann(FRAME, x.device, x.dtype), POINTS))
    return s[..., 0], s[..., 1]


def synthesis(re, im):
    """Spectra to samples [batch, (frames + 2) hops], with the library's inverse: the zero-frequency bin is halved,
    its half stands in the highest bin too, and what the highest bin held is lost. The gain is WINDOW_GAIN."""
    zero = torch.zeros_like(re[..., :1])
    half = re[..., :1] * .5
    s = torch.complex(torch.cat((half, re[..., 1:-1], half), -1), torch.cat((zero, im[..., 1:-1], zero), -1))
    frames = torch.fft.irfft(s, POINTS)[..., :FRAME] * hann(FRAME, re.device, re.dtype)
    first, second, third = (F.pad(part, (0, 0, 0, 0, at, 2 - at)) for at, part in enumerate(frames.split(HOP, -1)))
    return (first + second + third).transpose(0, 1).reshape(re.shape[1], -1)
