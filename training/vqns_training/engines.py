"""What enhances speech in an evaluation: the vqns library, through its C interface, and Speex's preprocessor, both on
16 kHz PCM in and out, aligned with the input."""
import ctypes
import ctypes.util

import numpy as np

from .audio import RATE

HOP = 160


def padded(pcm, delay):
    """With zeros behind, to whole hops that hold the input and what the engine holds back."""
    hops = -(-(len(pcm) + delay) // HOP)
    return np.pad(pcm, (0, hops * HOP - len(pcm)))


def pointer(pcm):
    return pcm.ctypes.data_as(ctypes.POINTER(ctypes.c_int16))


class Vqns:
    """The library without its gain control; a fresh instance for every signal."""

    def __init__(self, path):
        self.library = ctypes.CDLL(str(path))
        self.library.vq_ns_data_size.restype = ctypes.c_size_t
        self.library.vqns_model_id.restype = ctypes.c_char_p
        self.model_id = self.library.vqns_model_id().decode()
        self.memory = ctypes.create_string_buffer(self.library.vq_ns_data_size() + 64)
        address = ctypes.addressof(self.memory)
        self.instance = ctypes.c_void_p(address + -address % 64)

    def __call__(self, pcm):
        if self.library.vq_ns_reset(self.instance, RATE, RATE) != 0:
            raise RuntimeError("the library refuses 16 kHz")
        delay = self.library.vq_ns_delay(self.instance)
        x = padded(pcm, delay)
        y = np.zeros_like(x)
        for at in range(0, len(x), HOP):
            if self.library.vq_ns_proc(self.instance, pointer(x[at:]), pointer(y[at:]), HOP) < 0:
                raise RuntimeError("the library failed on a block")
        return y[delay:delay + len(pcm)]


class Speex:
    """libspeexdsp's preprocessor with its defaults: denoising, no gain control."""
    SET_DENOISE, SET_AGC = 0, 2  # of speex/speex_preprocess.h

    def __init__(self):
        name = ctypes.util.find_library("speexdsp")
        if name is None:
            raise OSError("libspeexdsp is not installed")
        self.library = ctypes.CDLL(name)
        self.library.speex_preprocess_state_init.restype = ctypes.c_void_p
        self.delay = self.measured_delay()

    def run(self, pcm, denoise):
        state = ctypes.c_void_p(self.library.speex_preprocess_state_init(HOP, RATE))
        for request, value in ((self.SET_DENOISE, denoise), (self.SET_AGC, 0)):
            self.library.speex_preprocess_ctl(state, request, ctypes.byref(ctypes.c_int(value)))
        y = pcm.copy()
        for at in range(0, len(y), HOP):
            self.library.speex_preprocess_run(state, pointer(y[at:]))
        self.library.speex_preprocess_state_destroy(state)
        return y

    def measured_delay(self):
        """In samples, on noise that it is told to leave as it is."""
        x = (np.random.default_rng(1).standard_normal(100 * HOP) * 1000).astype(np.int16)
        y = self.run(x, 0).astype(float)
        return int(np.argmax([np.dot(y[d:], x[:len(x) - d]) for d in range(4 * HOP)]))

    def __call__(self, pcm):
        return self.run(padded(pcm, self.delay), 1)[self.delay:self.delay + len(pcm)]
