"""The network's layers in plain PyTorch: the definition that the fast operators are checked against, and what runs
where those do not (on a GPU, in double precision, without a compiler). Maps are [frame, batch, band, channel]."""
import torch
import torch.nn.functional as F

EPSILON = 1e-3


def as_image(x):
    """[frame, batch, band, channel] to PyTorch's [batch, channel, frame, band]."""
    return x.permute(1, 3, 0, 2)


def as_map(x):
    return x.permute(2, 0, 3, 1)


def convolution(x, w, b):
    """w: [times, taps, in, out]; output frame t faces input frames t .. t + times - 1."""
    return as_map(F.conv2d(as_image(x), w.permute(3, 2, 0, 1), b, stride=(1, 2)))


def transposed_convolution(x, w, b):
    """w: [times, taps, out, in]; input frame t adds to output frames t .. t + times - 1; as many frames as came in."""
    y = F.conv_transpose2d(as_image(x), w.permute(3, 2, 0, 1), b, stride=(1, 2))
    return as_map(y[:, :, :x.shape[0]])


def norm_prelu(x, gain, offset, slope):
    y = F.layer_norm(x, x.shape[-1:], gain, offset, EPSILON)
    return torch.where(y > 0, y, y * slope)


def recurrent(x, gru, over_time):
    """gru: torch.nn.GRU, which has the reset gate after the bias of the recurrent product as here."""
    frames, batch, bands, units = x.shape
    if over_time:
        return gru(x.reshape(frames, batch * bands, units))[0].reshape(x.shape)
    rows = x.reshape(frames * batch, bands, units).transpose(0, 1)
    return gru(rows)[0].transpose(0, 1).reshape(x.shape)


def dense_norm(h, w, b, gain, offset, around):
    return around + F.layer_norm(F.linear(h, w, b), gain.shape, gain, offset, EPSILON)
