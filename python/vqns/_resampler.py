"""Other sampling rates, of streams and of whole recordings."""
from typing import Any

import numpy as np
from numpy.typing import NDArray

from . import _native
from ._arrays import Sound, as_frames, blocks, check_channels, check_rate


class Resampler:
    """Rate conversion of a recording that comes in blocks of any size.

    What `process` returns for all blocks and `flush` after the last, one behind the other, lies sample on sample with
    the input; of N frames in all come int(N * new_rate / rate + 0.5). Sound is 16-bit PCM inside.

    Args:
        rate, new_rate: 1000 to 768000 Hz, at most 256 to 1 apart.
        channels: blocks are [samples, channels]; for one channel [samples] will do too.
    """

    def __init__(self, rate: int, new_rate: int, channels: int = 1) -> None:
        rate, new_rate = (check_rate(r, _native.NEW_RATES) for r in (rate, new_rate))
        self._channels = check_channels(channels)
        self._native = _native.Resampler(rate, new_rate, self._channels)
        self._flushed = False
        self._last: Any = np.empty(0 if self._channels == 1 else (0, self._channels), np.float32)

    def process(self, block: Sound) -> Sound:
        """Takes a block and returns what comes of it so far, in the same type."""
        if self._flushed:
            raise ValueError("the resampler has been flushed; open another for the next sound")
        frames = as_frames(block, self._channels)
        self._last = np.asarray(block)[:0]
        parts: list[NDArray[np.int16]] = [np.empty((0, self._channels), np.int16)]
        parts += (self._native.process(_pcm(frames[part])) for part in blocks(len(frames)))
        sound: Sound = self._like_last(np.concatenate(parts))
        return sound

    def flush(self) -> Any:
        """Ends the stream and returns what is still due, in the type and shape of the last block."""
        if self._flushed:
            raise ValueError("the resampler has been flushed already")
        self._flushed = True
        return self._like_last(self._native.flush())

    def _like_last(self, pcm: NDArray[np.int16]) -> Any:
        sound = pcm if self._last.dtype == np.int16 else pcm.astype(np.float32) / np.float32(32768)
        return sound.reshape((-1, *self._last.shape[1:]))


def resample(x: Sound, rate: int, new_rate: int) -> Sound:
    """A recording at another sampling rate, in the same type and sample on sample with it:
    int(N * new_rate / rate + 0.5) frames of N.

    Args:
        x: int16 or float32, [samples] or [samples, channels].
        rate, new_rate: 1000 to 768000 Hz, at most 256 to 1 apart.
    """
    frames = as_frames(x)
    resampler = Resampler(rate, new_rate, frames.shape[1])
    sound: Sound = np.concatenate([resampler.process(frames), resampler.flush()]).reshape((-1, *np.shape(x)[1:]))
    return sound


def _pcm(frames: Any) -> NDArray[np.int16]:
    """Frames as 16-bit PCM, without gaps between them: floating point is rounded and clipped, and not-a-number is
    silence."""
    if frames.dtype == np.int16:
        return np.ascontiguousarray(frames)
    units = np.clip(np.nan_to_num(frames, posinf=1, neginf=-1), -1, 1) * 32768
    pcm: NDArray[np.int16] = np.rint(np.minimum(units, 32767)).astype(np.int16, order="C")
    return pcm
