"""The network's layers: fast operators for float32 on a processor, plain PyTorch for everything else.

A backward pass uses up what its forward pass kept, so it runs once (no retain_graph) and cannot itself be
differentiated; the reference can.
"""
import ctypes
import functools
import os
import sys

import torch

from . import build, reference


@functools.lru_cache(maxsize=None)
def kernels():
    """The compiled operators, or None when they are switched off (VQNS_PLAIN=1) or cannot be built."""
    if os.environ.get("VQNS_PLAIN") == "1":
        return None
    try:
        return build.load()
    except Exception as failure:  # no compiler, no BLAS, a read-only cache: training goes on, slowly
        print(f"fast operators not available, using plain PyTorch: {failure}", file=sys.stderr)
        return None


def is_fast(x):
    return x.device.type == "cpu" and x.dtype == torch.float32 and kernels() is not None


def call(name, *arguments):
    def convert(a):
        if a is None:
            return ctypes.c_void_p(None)
        if isinstance(a, torch.Tensor):
            assert a.is_contiguous() and a.dtype == torch.float32
            return ctypes.c_void_p(a.data_ptr())
        return ctypes.c_long(a)
    return getattr(kernels(), name)(*(convert(a) for a in arguments))


def gather(wide, w, bias, narrow_frames):
    frames, batch, bands, cw = wide.shape
    times, taps, _, cn = w.shape
    out = wide.new_empty(narrow_frames, batch, (bands - taps) // 2 + 1, cn)
    call("gather", wide, w, bias, out, frames, narrow_frames, batch, bands, cw, cn, times, taps)
    return out


def spread(narrow, w, bias, wide_frames, bands):
    frames, batch, _, cn = narrow.shape
    times, taps, cw, _ = w.shape
    out = narrow.new_empty(wide_frames, batch, bands, cw)
    call("spread", narrow, w, bias, out, frames, wide_frames, batch, bands, cw, cn, times, taps)
    return out


def correlate(wide, narrow, w):
    times, taps, cw, cn = w.shape
    dw = torch.empty_like(w)
    frames, batch, bands, _ = wide.shape
    call("correlate", wide, narrow, dw, frames, narrow.shape[0], batch, bands, cw, cn, times, taps)
    return dw


def sum_rows(x):
    out = x.new_empty(x.shape[-1])
    call("sum_rows", x, out, x.numel() // x.shape[-1], x.shape[-1])
    return out


class Convolution(torch.autograd.Function):
    @staticmethod
    def forward(ctx, x, w, b):
        x, w = x.contiguous(), w.contiguous()
        ctx.save_for_backward(x, w)
        return gather(x, w, b, x.shape[0] - w.shape[0] + 1)

    @staticmethod
    def backward(ctx, dy):
        x, w = ctx.saved_tensors
        dy = dy.contiguous()
        dx = spread(dy, w, None, x.shape[0], x.shape[2]) if ctx.needs_input_grad[0] else None
        return dx, correlate(x, dy, w), sum_rows(dy)


class TransposedConvolution(torch.autograd.Function):
    @staticmethod
    def forward(ctx, x, w, b):
        x, w = x.contiguous(), w.contiguous()
        ctx.save_for_backward(x, w)
        return spread(x, w, b, x.shape[0], 2 * (x.shape[2] - 1) + w.shape[1])

    @staticmethod
    def backward(ctx, dy):
        x, w = ctx.saved_tensors
        dy = dy.contiguous()
        return gather(dy, w, None, x.shape[0]), correlate(dy, x, w), sum_rows(dy)


class NormPRelu(torch.autograd.Function):
    @staticmethod
    def forward(ctx, x, gain, offset, slope):
        x = x.contiguous()
        rows = x.numel() // x.shape[-1]
        y, saved = torch.empty_like(x), x.new_empty(rows, 2)
        if not call("norm_prelu_forward", x, gain, offset, slope, y, saved, rows, x.shape[-1]):
            raise ValueError(f"norm_prelu: no operator for {x.shape[-1]} channels")
        ctx.save_for_backward(x, gain, offset, slope, saved)
        return y

    @staticmethod
    def backward(ctx, dy):
        x, gain, offset, slope, saved = ctx.saved_tensors
        dx, sums = torch.empty_like(x), [torch.empty_like(gain) for _ in range(3)]
        call("norm_prelu_backward", x, gain, offset, slope, saved, dy.contiguous(), dx, *sums, len(saved), x.shape[-1])
        return dx, *sums


class Recurrent(torch.autograd.Function):
    @staticmethod
    def forward(ctx, x, wi, wh, bi, bh, over_time):
        x = x.contiguous()
        y, gates = torch.empty_like(x), x.new_empty(*x.shape[:3], 256)
        call("recurrent_forward", x, wi, wh, bi, bh, gates, y, *x.shape[:3], int(over_time))
        ctx.save_for_backward(x, wi, wh, y)
        ctx.gates, ctx.over_time = gates, over_time
        return y

    @staticmethod
    def backward(ctx, dy):
        x, wi, wh, y = ctx.saved_tensors
        gates, ctx.gates = ctx.gates, None
        assert gates is not None, "the recurrent layer's backward pass runs once"
        dx, dwi, dwh = torch.empty_like(x), torch.empty_like(wi), torch.empty_like(wh)
        dbi, dbh = x.new_empty(192), x.new_empty(192)
        call("recurrent_backward", x, wi, wh, gates, y, dy.contiguous(), dx, dwi, dwh, dbi, dbh, *x.shape[:3],
             int(ctx.over_time))
        return dx, dwi, dwh, dbi, dbh, None


class DenseNorm(torch.autograd.Function):
    @staticmethod
    def forward(ctx, h, w, b, gain, offset, around):
        h, around = h.contiguous(), around.contiguous()
        maps, bands = h.shape[0] * h.shape[1], h.shape[2]
        dense, saved, y = torch.empty_like(h), h.new_empty(maps, 2), torch.empty_like(h)
        call("dense_norm_forward", h, w, b, gain, offset, around, dense, saved, y, maps, bands)
        ctx.save_for_backward(h, w, gain, dense, saved)
        return y

    @staticmethod
    def backward(ctx, dy):
        h, w, gain, dense, saved = ctx.saved_tensors
        dy = dy.contiguous()
        dh, dw, db, dgain, doffset = (torch.empty_like(v) for v in (h, w, w[0], gain, gain))
        call("dense_norm_backward", h, w, gain, dense, saved, dy, dh, dw, db, dgain, doffset, len(saved), h.shape[2])
        return dh, dw, db, dgain, doffset, dy


def convolution(x, w, b):
    return (Convolution.apply if is_fast(x) else reference.convolution)(x, w, b)


def transposed_convolution(x, w, b):
    return (TransposedConvolution.apply if is_fast(x) else reference.transposed_convolution)(x, w, b)


def norm_prelu(x, gain, offset, slope):
    return (NormPRelu.apply if is_fast(x) else reference.norm_prelu)(x, gain, offset, slope)


def recurrent(x, gru, over_time):
    if not is_fast(x):
        return reference.recurrent(x, gru, over_time)
    return Recurrent.apply(x, gru.weight_ih_l0, gru.weight_hh_l0, gru.bias_ih_l0, gru.bias_hh_l0, over_time)


def dense_norm(h, w, b, gain, offset, around):
    return (DenseNorm.apply if is_fast(h) else reference.dense_norm)(h, w, b, gain, offset, around)
