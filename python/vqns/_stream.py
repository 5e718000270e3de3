"""Noise suppression and speech detection, of streams and of whole recordings."""
import math
import operator
from types import TracebackType
from typing import Any

import numpy as np

from . import _native
from ._arrays import Sound, as_frames, blocks, check_channels, check_limit, check_rate, check_seconds


class Stream:
    """Noise suppression for sound that comes in blocks of any size.

    As many frames come out of `process` as go in, `latency` frames late; `flush` gives the rest:

        with vqns.Stream(48000, channels=2) as stream:
            out = [stream.process(block) for block in blocks] + [stream.flush()]
            aligned = np.concatenate(out)[stream.latency:]

    The result does not depend on how the sound is cut into blocks. `attenuation_limit`, `level` and `bypass` may be
    set at any time, from any thread; the next block follows them.

    Args:
        rate: sampling rate, 8000 to 192000 Hz.
        channels: blocks are [samples, channels]; for one channel [samples] will do too.
        attenuation_limit: how far noise may be turned down, in dB, by leaving that much of the input in: 0 passes
            the input, None sets no limit.
        level: bring speech to an even level.
        bypass: give the input back as it is, as late as ever. Going there and back takes a cross-fade of 10 ms.
        speech_mode: of `speech_segments`: 0 misses least speech ... 3 lets least noise through.
    """

    def __init__(self, rate: int, channels: int = 1, *, attenuation_limit: float | None = None, level: bool = True,
                 bypass: bool = False, speech_mode: int = 2) -> None:
        self._rate = check_rate(rate, _native.STREAM_RATES)
        self._channels = check_channels(channels)
        self.attenuation_limit = attenuation_limit
        self.level = level
        self.bypass = bypass
        self._native: _native.Stream | None = _native.Stream(self._rate, self._channels, operator.index(speech_mode))
        self._latency = self._native.latency
        self._frames_in = 0
        self._flushed = False
        self._last: Any = np.empty(0 if self._channels == 1 else (0, self._channels), np.float32)

    @property
    def rate(self) -> int:
        """Sampling rate, in Hz."""
        return self._rate

    @property
    def channels(self) -> int:
        """How many."""
        return self._channels

    @property
    def latency(self) -> int:
        """Frames from input to output: exact, and the same for the life of the stream."""
        return self._latency

    @property
    def attenuation_limit(self) -> float | None:
        """How far noise may be turned down, in dB; None for no limit."""
        return self._attenuation_limit

    @attenuation_limit.setter
    def attenuation_limit(self, limit: float | None) -> None:
        self._attenuation_limit = check_limit(limit)

    @property
    def level(self) -> bool:
        """Whether speech is brought to an even level."""
        return self._level

    @level.setter
    def level(self, level: bool) -> None:
        self._level = bool(level)

    @property
    def bypass(self) -> bool:
        """Whether the input passes as it is."""
        return self._bypass

    @bypass.setter
    def bypass(self, bypass: bool) -> None:
        self._bypass = bool(bypass)

    def process(self, block: Sound) -> Sound:
        """Takes a block and returns one of the same type and shape, `latency` frames behind."""
        if self._flushed:
            raise ValueError("the stream has been flushed; open another for the next sound")
        frames = as_frames(block, self._channels)
        out = np.array(frames, order="C")
        self._process(out)
        self._frames_in += len(out)
        self._last = np.asarray(block)[:0]
        return out.reshape(np.shape(block))

    def flush(self) -> Any:
        """Ends the stream and returns its last `latency` frames, in the type and shape of the last block."""
        if self._flushed:
            raise ValueError("the stream has been flushed already")
        # What the detector has not judged yet is a hop that is not complete, another 10 ms.
        rest = np.zeros((self._latency + self._rate // 100, self._channels), self._last.dtype)
        self._process(rest)
        self._flushed = True
        return rest[:self._latency].reshape((-1, *self._last.shape[1:]))

    def speech_segments(self, *, min_pause: float = 0.3, min_speech: float = 0.1) -> list[tuple[float, float]]:
        """Stretches of speech found so far, as (start, end) in seconds of the input; all of them after `flush`."""
        native = self._open()
        return native.speech_segments(self._frames_in / self._rate, check_seconds(min_pause, "min_pause"),
                                      check_seconds(min_speech, "min_speech"))

    def close(self) -> None:
        """Gives the memory back. The stream is of no use afterwards."""
        self._native = None

    def __enter__(self) -> "Stream":
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def _open(self) -> _native.Stream:
        if self._native is None:
            raise ValueError("the stream is closed")
        return self._native

    def _process(self, frames: Any) -> None:
        """In place, on [frames, channels] without gaps."""
        native = self._open()
        for part in blocks(len(frames)):
            limit = math.inf if self._attenuation_limit is None else self._attenuation_limit
            native.process(frames[part], limit, self._level, self._bypass)


def denoise(x: Sound, rate: int, *, attenuation_limit: float | None = None, level: bool = True) -> Sound:
    """Takes the noise out of a recording and returns it in the same type and shape, sample on sample.

    Args:
        x: int16 or float32, [samples] or [samples, channels].
        rate: sampling rate of x, 8000 to 192000 Hz.
        attenuation_limit: how far noise may be turned down, in dB: 0 passes the input, None sets no limit.
        level: bring speech to an even level.
    """
    frames = as_frames(x)
    with Stream(rate, frames.shape[1], attenuation_limit=attenuation_limit, level=level) as stream:
        sound = np.zeros((len(frames) + stream.latency, stream.channels), frames.dtype)
        sound[:len(frames)] = frames
        stream._process(sound)
        return sound[stream.latency:].reshape(np.shape(x))


def speech_segments(x: Sound, rate: int, *, mode: int = 2, min_pause: float = 0.3,
                    min_speech: float = 0.1) -> list[tuple[float, float]]:
    """The stretches of a recording with speech in any channel, as (start, end) in seconds, in order.

    Args:
        x: int16 or float32, [samples] or [samples, channels].
        rate: sampling rate of x, 8000 to 192000 Hz.
        mode: 0 misses least speech ... 3 lets least noise through.
        min_pause: shorter pauses are bridged, in seconds.
        min_speech: shorter stretches of speech are left out, in seconds.
    """
    frames = as_frames(x)
    with Stream(rate, frames.shape[1], level=False, speech_mode=mode) as stream:
        for part in blocks(len(frames)):
            stream.process(frames[part])
        stream.flush()
        return stream.speech_segments(min_pause=min_pause, min_speech=min_speech)
