"""What arguments must be, and blocks of sound as [frames, channels]."""
import operator
from collections.abc import Iterator
from typing import Any, TypeVar

import numpy as np
from numpy.typing import NDArray

Sound = TypeVar("Sound", NDArray[np.int16], NDArray[np.float32])

MOST_CHANNELS = 1024
BLOCK = 1 << 14  # frames processed at a stretch; between blocks an interrupt gets through


def as_frames(sound: Any, channels: int | None = None) -> Any:
    """The sound as [frames, channels] without a copy where it can be; `channels` of them, if that is given."""
    x = np.asarray(sound)
    if x.dtype not in (np.int16, np.float32):
        hint = "; x.astype(np.float32) makes one of it" if x.dtype == np.float64 else ""
        raise TypeError(f"sound is an array of int16 or float32, not {x.dtype}{hint}")
    if x.ndim not in (1, 2):
        raise ValueError(f"sound is [samples] or [samples, channels], not an array of shape {x.shape}")
    frames = x[:, np.newaxis] if x.ndim == 1 else x
    if channels is not None and frames.shape[1] != channels:
        raise ValueError(f"{channels} channel{'s' * (channels != 1)} expected, not an array of shape {x.shape}")
    if frames.shape[1] > MOST_CHANNELS:
        raise ValueError(f"an array of shape {x.shape} is not [samples, channels]; is x.T meant?")
    check_channels(frames.shape[1])
    return frames


def check_channels(channels: int) -> int:
    """A number of channels."""
    channels = operator.index(channels)
    if not 1 <= channels <= MOST_CHANNELS:
        raise ValueError(f"there are 1 to {MOST_CHANNELS} channels, not {channels}")
    return channels


def check_rate(rate: int, limits: tuple[int, int]) -> int:
    """A sampling rate: a whole number of Hz."""
    try:
        rate = operator.index(rate)
    except TypeError:
        raise TypeError(f"a rate is a whole number of Hz, not {rate!r}") from None
    if not limits[0] <= rate <= limits[1]:
        raise ValueError(f"a rate of {rate} Hz is outside {limits[0]} to {limits[1]}")
    return rate


def check_limit(limit: float | None) -> float | None:
    """An attenuation limit in dB, None for no limit."""
    if limit is None:
        return None
    limit = float(limit)
    if not limit >= 0:
        raise ValueError(f"an attenuation limit is 0 dB or more, not {limit}")
    return limit


def check_seconds(seconds: float, what: str) -> float:
    """A length of time."""
    seconds = float(seconds)
    if not seconds >= 0:
        raise ValueError(f"{what} is 0 seconds or more, not {seconds}")
    return seconds


def blocks(count: int) -> Iterator[slice]:
    """Slices of `count` frames, in order."""
    return (slice(start, min(start + BLOCK, count)) for start in range(0, count, BLOCK))
