"""Made-up noises: what no folder of recordings holds enough of. Each takes a length and a random generator."""
import numpy as np
import scipy.signal

from .audio import RATE
from .filters import log_uniform, random_peak, tilted


def seconds(n):
    return np.arange(n) / RATE


def moving_filtered_noise(n, rng):
    """Coloured noise with a few resonances whose level swells."""
    z = rng.standard_normal(n).astype(np.float32)
    for _ in range(rng.integers(1, 5)):
        z = random_peak(z, rng)
    z = tilted(z, -rng.uniform(-1, 2) / 2)
    swell = np.sin(2 * np.pi * log_uniform(rng, .2, 30) * seconds(n) + rng.uniform(0, 6))
    return z * (1 + rng.uniform(0, .95) * swell)


def hum(n, rng):
    """A wandering tone with up to 40 harmonics, some missing, over a little noise."""
    wander = np.sin(2 * np.pi * rng.uniform(.05, 1) * seconds(n) + rng.uniform(0, 6))
    f = log_uniform(rng, 25, 400) * (1 + rng.uniform(0, .3) * wander)
    phase, slope = 2 * np.pi * np.cumsum(f) / RATE, rng.uniform(.2, 1.5)
    z = rng.standard_normal(n) * rng.uniform(0, .5)
    for k in range(1, int(min(40, 7500 / f.max())) + 1):
        if rng.random() < .8:
            z += np.sin(k * phase + rng.uniform(0, 6)) * k ** -slope
    return z


def ringing_clicks(n, rng):
    z = np.zeros(n)
    at = rng.integers(0, n, rng.integers(1, 60))
    z[at] = rng.standard_normal(len(at))
    for _ in range(rng.integers(1, 4)):
        r = np.exp(-1 / (RATE * log_uniform(rng, .002, .15)))
        w = 2 * np.pi * log_uniform(rng, 150, 6500) / RATE
        z = scipy.signal.lfilter([1, rng.uniform(-1, 1)], [1, -2 * r * np.cos(w), r * r], z)
    return z


def beeps(n, rng):
    on = np.repeat(rng.random(n // 800 + 1) < rng.uniform(.2, .8), int(800 * rng.uniform(1, 8)))[:n]
    pitch = np.repeat(np.exp(rng.uniform(np.log(300), np.log(5000), n // 4000 + 1)), 4000)[:n]
    tone = np.sin(2 * np.pi * np.cumsum(pitch) / RATE)
    return tone * np.convolve(on, np.ones(80) / 80, "same") + rng.standard_normal(n) * .003


KINDS = (moving_filtered_noise, hum, ringing_clicks, beeps)


def any_kind(n, rng):
    return KINDS[rng.integers(len(KINDS))](n, rng).astype(np.float32)
