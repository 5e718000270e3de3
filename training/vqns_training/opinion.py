"""Opinion score by the model of hearing of ITU-T P.862 with the wide-band filter and scale of P.862.2. Without the
alignment in time (signals are aligned), and not run against the standard's conformance data: it compares models, and
its figures are not PESQ's."""
import numpy as np
import scipy.signal

from . import hearing
from .audio import RATE
from .hearing import EXPONENT, FRAME, HOP, THRESHOLD, WIDTH


def levelled(x):
    s, hertz = np.fft.rfft(x), np.fft.rfftfreq(len(x), 1 / RATE)
    low, high = hearing.TELEPHONE_BAND
    band = np.fft.irfft(s * ((hertz >= low) & (hertz <= high)), len(x))
    return x * np.sqrt(hearing.POWER / (np.mean(band ** 2) + 1e-12))


def intensities(x):
    """Power in Bark bands, [frame, band]."""
    frames = np.lib.stride_tricks.sliding_window_view(x, FRAME)[::HOP] * scipy.signal.get_window("hann", FRAME)
    power = np.abs(np.fft.rfft(frames)) ** 2
    power[:, 0] = 0
    bands = [power[:, first:end].sum(1) for first, end in hearing.EDGES]
    return np.stack(bands, 1) * hearing.CORRECTION * hearing.POWER_SCALE


def audible(power, factor=1):
    """Of frames, without the lowest band."""
    return (power * (power > factor * THRESHOLD))[:, 1:].sum(1)


def loudness(power):
    above = (THRESHOLD / .5) ** EXPONENT * ((.5 + .5 * power / THRESHOLD) ** EXPONENT - 1)
    return hearing.LOUDNESS * np.where(power > THRESHOLD, above, 0)


def norm(disturbance, power):
    """Of frames, over the bands but the lowest."""
    total = WIDTH[1:].sum()
    return ((np.abs(disturbance[:, 1:] * WIDTH[1:]) ** power).sum(1) / total) ** (1 / power) * total


def over_time(frames):
    """Root mean square of a worst of every third of a second; beyond the end there is no disturbance."""
    worst = [(np.sum(frames[at:at + 20] ** 6) / 20) ** (1 / 6) for at in range(0, len(frames), 10)]
    return np.sqrt(np.mean(np.square(worst)))


def opinion(clean, x):
    """1 to 4.6; not a number where there is nothing to hear."""
    s, y = (scipy.signal.lfilter(*hearing.INPUT_FILTER, levelled(v.astype(np.float64))) for v in (clean, x))
    heard = np.flatnonzero(np.convolve(np.abs(s), np.ones(5), "valid") >= 500)
    if not len(heard) or heard[-1] - heard[0] < RATE // 2:
        return float("nan")
    s, y = (intensities(v[heard[0]:heard[-1] + 5]) for v in (s, y))

    # A fixed colour and slow changes of the level are hardly heard: the one goes to the clean side, the other is undone.
    speech = audible(s, 100)[:, None] >= hearing.POWER
    colour = [(v * (v > 100 * THRESHOLD) * speech).mean(0) + 1000 for v in (y, s)]
    s *= np.clip(colour[0] / colour[1], .01, 100)
    gains = (audible(s) + 5e3) / (audible(y) + 5e3)
    gain = gains[0]
    for i, now in enumerate(gains):
        gain = .2 * gain + .8 * now
        y[i] *= np.clip(gain, 3e-4, 5)

    a, b = loudness(s), loudness(y)
    difference = b - a
    difference = np.sign(difference) * np.maximum(np.abs(difference) - .25 * np.minimum(a, b), 0)  # closer is masked
    # What has been added disturbs more than what has been left out.
    asymmetry = ((y + 50) / (s + 50)) ** 1.2
    asymmetry = np.where(asymmetry < 3, 0, np.minimum(asymmetry, 12))
    emphasis = ((audible(s) + 1e5) / 1e7) ** -.04  # of soft frames
    symmetric, added = (np.minimum(norm(d, power) * emphasis, 45)
                        for d, power in ((difference, 2), (difference * asymmetry, 1)))
    raw = 4.5 - .1 * over_time(symmetric) - .0309 * over_time(added)
    return float(.999 + 4 / (1 + np.exp(3.8224 - 1.3669 * raw)))
