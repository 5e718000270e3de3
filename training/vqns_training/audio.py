"""Audio files as 16 kHz mono."""
from math import gcd
from pathlib import Path

import numpy as np
import scipy.signal
import soundfile

RATE = 16000
EXTENSIONS = {".wav", ".flac", ".ogg", ".oga", ".opus"}


def files_under(folder):
    """Paths relative to the folder, sorted."""
    top = Path(folder)
    return sorted(str(p.relative_to(top)) for p in top.rglob("*") if p.suffix.lower() in EXTENSIONS and p.is_file())


def resample(x, rate, wanted):
    if rate == wanted:
        return x
    common = gcd(rate, wanted)
    return scipy.signal.resample_poly(x, wanted // common, rate // common).astype(np.float32)


def read(path):
    """Float32 samples, full scale 1; channels are averaged."""
    x, rate = soundfile.read(path, dtype="float32", always_2d=True)
    return resample(x.mean(1), rate, RATE)


def to_pcm(x):
    return np.clip(np.round(x * 32768), -32768, 32767).astype(np.int16)


def write(path, x):
    soundfile.write(path, to_pcm(x), RATE, subtype="PCM_16")
