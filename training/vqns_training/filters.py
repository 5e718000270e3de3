"""Random filters and speeds: other microphones, other voices, other machines out of the same recordings."""
import numpy as np
import scipy.signal

from .audio import RATE


def log_uniform(rng, low, high):
    return np.exp(rng.uniform(np.log(low), np.log(high)))


def random_biquad(x, rng):
    """Second order, coefficients within 3/8: always stable, a few dB of tilt and bumps."""
    r = rng.uniform(-.375, .375, 4)
    return scipy.signal.lfilter([1, r[0], r[1]], [1, r[2], r[3]], x).astype(np.float32)


def random_peak(x, rng):
    """One peaking equaliser of up to 9 dB between 100 and 6000 Hz (R. Bristow-Johnson's cookbook)."""
    w, a = 2 * np.pi * log_uniform(rng, 100, 6000) / RATE, 10 ** (rng.uniform(-9, 9) / 40)
    alpha = np.sin(w) / 2 / rng.uniform(.5, 1.5)
    b, c = [1 + alpha * a, -2 * np.cos(w), 1 - alpha * a], [1 + alpha / a, -2 * np.cos(w), 1 - alpha / a]
    return scipy.signal.lfilter(b, c, x).astype(np.float32)


def random_colour(x, rng):
    if rng.random() < .5:
        x = random_peak(x, rng)
    return random_biquad(x, rng) if rng.random() < .3 else x


def tilted(x, slope):
    """Its spectrum times frequency to the power `slope`: 6 dB per octave and unit."""
    s = np.fft.rfft(x)
    return np.fft.irfft(s * (np.arange(len(s)) + 8.) ** slope, len(x)).astype(np.float32)


def another_colour(x, rng):
    """Several peaks and a tilt: far from what the recording was."""
    for _ in range(rng.integers(2, 5)):
        x = random_peak(x, rng)
    return tilted(x, rng.uniform(-.6, .6))


def low_pass(cutoff):
    """Sixth-order sections for scipy.signal.sosfilt."""
    return scipy.signal.butter(6, cutoff / (RATE / 2), output="sos")


def filtered(sos, x):
    return scipy.signal.sosfilt(sos, x).astype(np.float32)


def speed_ratio(rng, widest):
    """(up, down) of a speed change of up to the factor `widest` either way."""
    step = int(rng.integers(-20, 21))
    longer = 40 + round(2 * (widest - 1) * abs(step))
    return (40, longer) if step > 0 else (longer, 40)


def respeed(x, ratio):
    """Played faster (up < down) or slower, pitch and all."""
    up, down = ratio
    return x if up == down else scipy.signal.resample_poly(x, up, down, window=("kaiser", 5.0)).astype(np.float32)
