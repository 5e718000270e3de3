"""The network: three convolutions down in frequency, four recurrent stages along frequency and time in turn, three
transposed convolutions up again, a complex mask per bin. Maps are [frame, batch, band, channel]."""
import torch
from torch import nn

from . import framing, operators
from .framing import BINS

BANDS, UNITS, PADDING = 31, 64, 14
LOOK_AHEAD = 2  # frames: the mask of frame t is for the spectrum of frame t - 2


def uniform(bound, *shape):
    return nn.Parameter(torch.empty(*shape).uniform_(-bound, bound))


class NormPRelu(nn.Module):
    def __init__(self, channels):
        super().__init__()
        self.gain, self.offset = nn.Parameter(torch.ones(channels)), nn.Parameter(torch.zeros(channels))
        self.slope = nn.Parameter(torch.full((channels,), .25))

    def forward(self, x):
        return operators.norm_prelu(x, self.gain, self.offset, self.slope)


class Convolution(nn.Module):
    def __init__(self, channels, out, times, taps):
        super().__init__()
        bound = (channels * times * taps) ** -.5
        self.weight, self.bias = uniform(bound, times, taps, channels, out), uniform(bound, out)

    def forward(self, x):
        return operators.convolution(x, self.weight, self.bias)


class TransposedConvolution(nn.Module):
    def __init__(self, channels, out, times, taps):
        super().__init__()
        self.weight = uniform((channels * times * taps / 2) ** -.5, times, taps, out, channels)
        self.bias = nn.Parameter(torch.zeros(out))

    def forward(self, x):
        return operators.transposed_convolution(x, self.weight, self.bias)


class Stage(nn.Module):
    """A recurrent layer along the bands of a frame or the frames of a band, a dense layer, a normalisation over the
    whole map, around which the map itself goes."""

    def __init__(self, over_time):
        super().__init__()
        self.over_time = over_time
        self.gru, self.dense = nn.GRU(UNITS, UNITS), nn.Linear(UNITS, UNITS)
        self.gain, self.offset = nn.Parameter(torch.ones(BANDS, UNITS)), nn.Parameter(torch.zeros(BANDS, UNITS))

    def forward(self, x):
        h = operators.recurrent(x, self.gru, self.over_time)
        return operators.dense_norm(h, self.dense.weight, self.dense.bias, self.gain, self.offset, x)


class InputNorm(nn.Module):
    """Over the 514 parts of a spectrum and 14 zeros behind them: both sums run over the zeros too, the divisor is
    514."""

    def __init__(self):
        super().__init__()
        self.gain, self.offset = nn.Parameter(torch.ones(2 * BINS)), nn.Parameter(torch.zeros(2 * BINS))

    def forward(self, re, im):
        x = torch.stack((re, im), -1).flatten(-2)
        mean = x.mean(-1, keepdim=True)
        d = x - mean
        variance = ((d * d).sum(-1, keepdim=True) + PADDING * mean * mean) / (2 * BINS)
        return (d * torch.rsqrt(variance + 1e-3) * self.gain + self.offset).unflatten(-1, (BINS, 2))


class Network(nn.Module):
    def __init__(self):
        super().__init__()
        self.input_norm = InputNorm()
        self.encoder = nn.ModuleList([Convolution(2, 32, 2, 5), Convolution(32, 48, 2, 3), Convolution(48, 64, 1, 3)])
        self.encoder_norm = nn.ModuleList([NormPRelu(c) for c in (32, 48, 64)])
        self.stages = nn.ModuleList([Stage(over_time=i % 2 == 1) for i in range(4)])
        self.decoder = nn.ModuleList([TransposedConvolution(64, 48, 1, 3), TransposedConvolution(48, 32, 2, 3),
                                      TransposedConvolution(32, 2, 2, 5)])
        self.decoder_norm = nn.ModuleList([NormPRelu(c) for c in (48, 32)])
        with torch.no_grad():  # begin near a mask of one half
            self.decoder[2].weight.mul_(.1)
            self.decoder[2].bias.copy_(torch.tensor([.5, 0.]))

    def mask(self, re, im):
        """Spectra [frame, batch, bin] to masks [frame - 2, batch, bin, 2] for all but the last two frames."""
        x = self.input_norm(re, im)
        layer0 = self.encoder_norm[0](self.encoder[0](x))
        layer1 = self.encoder_norm[1](self.encoder[1](layer0))
        layer2 = self.encoder_norm[2](self.encoder[2](layer1))
        x = layer2
        for stage in self.stages:
            x = stage(x)
        x = self.decoder_norm[0](self.decoder[0](x + layer2)) + layer1
        x = self.decoder_norm[1](self.decoder[1](x)) + layer0[:-1]  # of the frame before
        return self.decoder[2](x)

    def forward(self, re, im):
        """Spectra to the cleaned spectra of all but the last two frames."""
        mr, mi = self.mask(re, im).unbind(-1)
        re, im = re[:-LOOK_AHEAD], im[:-LOOK_AHEAD]
        return re * mr - im * mi, re * mi + im * mr

    def denoise(self, x):
        """[batch, samples] to enhanced samples, in place in time with them, two frames shorter; gain 1.125 as the
        library's. The first and last two hops lack a part of the overlap."""
        return framing.synthesis(*self(*framing.spectra(x)))
