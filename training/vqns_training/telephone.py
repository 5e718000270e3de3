"""Speech as telephones hand it on: band-limited to an 8 kHz rate, and coded."""
import io

import numpy as np
import scipy.signal
import soundfile

from .audio import RATE, resample

NARROW = 8000
CODERS = ("ULAW", "ALAW", "GSM610", "G721_32", "IMA_ADPCM")


def coded(x, coder):
    """x at 8 kHz through a speech coder and back."""
    file = io.BytesIO()
    soundfile.write(file, np.clip(x, -1, 1), NARROW, format="WAV", subtype=coder)
    file.seek(0)
    y = soundfile.read(file, dtype="float32")[0][:len(x)]
    return np.pad(y, (0, len(x) - len(y)))


class Line:
    """One telephone line: 300 (or lower) to 3400 Hz (or higher), and a coder or none. Speech through it stays in
    time with the original."""

    def __init__(self, rng, coder=None):
        self.coder = coder or (None if rng.random() < .3 else CODERS[rng.integers(len(CODERS))])
        band = [rng.uniform(30, 300), rng.uniform(3300, 3800)]
        self.filter = scipy.signal.butter(2, band, "bandpass", fs=NARROW, output="sos")

    def __call__(self, x, with_coder=True):
        y = scipy.signal.sosfiltfilt(self.filter, resample(x, RATE, NARROW))
        y = coded(y, self.coder) if self.coder and with_coder else y
        return resample(y, NARROW, RATE)[:len(x)].astype(np.float32)
