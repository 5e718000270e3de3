"""Noise suppression, levelling and rate conversion for speech in NumPy arrays.

    import soundfile, vqns
    x, rate = soundfile.read("call.wav", dtype="int16")
    clean = vqns.denoise(x, rate)

Sound is an array of int16 or float32 (full scale is 1), of shape [samples] or [samples, channels]; channels are
treated each on its own. What comes back has the same type and shape, and sample i of it belongs to sample i of what
went in. Wrong types raise TypeError, wrong shapes, rates and settings ValueError.

Inside, sound is 16-bit PCM at 16 kHz: float32 results are multiples of 1/32768, and nothing above 8 kHz remains.

denoise, speech_segments and resample take a whole recording; Stream and Resampler take blocks of any size, as they
come. All of them work without the interpreter lock, so that threads run in parallel: one object, one thread.
`python3 -m vqns.corpus` denoises a folder tree.
"""
from ._native import model_id, version as __version__
from ._resampler import Resampler, resample
from ._stream import Stream, denoise, speech_segments

__all__ = ["Resampler", "Stream", "__version__", "denoise", "model_id", "resample", "speech_segments"]
