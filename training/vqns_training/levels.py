"""Levels, and what changes them."""
import numpy as np

from .audio import RATE

FRAME = 160  # 10 ms


def db(x):
    return 20 * np.log10(x)


def gain(decibels):
    return 10 ** (decibels / 20)


def rms(x):
    return float(np.sqrt(np.mean(np.square(x, dtype=np.float64)) + 1e-12))


def frame_energies(x):
    return np.square(x[:len(x) // FRAME * FRAME].reshape(-1, FRAME), dtype=np.float64).mean(1)


def active_frames(x):
    """Which 10 ms frames lie within 30 dB of the loudest."""
    e = frame_energies(x)
    return e >= max(e.max(initial=0) * 1e-3, 1e-12)


def active_rms(x):
    """Level over the active frames."""
    e = frame_energies(x)[active_frames(x)]
    return float(np.sqrt((e.mean() if len(e) else 0) + 1e-12))


def smooth(x, samples):
    return np.convolve(x, np.ones(samples) / samples, "same").astype(np.float32)


def stepping_gain(n, rng):
    """A gain curve with one to three sudden steps of up to 20 dB either way, 5 ms each."""
    steps = np.zeros(n)
    for at in rng.integers(0, n, rng.integers(1, 4)):
        steps[at:] += rng.uniform(-20, 20)
    return smooth(gain(np.clip(steps, -20, 20)), 80)[:n]


def silence_gaps(n, rng):
    """One where sound goes on, zero in up to three stretches of digital silence; sometimes at the beginning."""
    keep = np.ones(n, np.float32)
    for _ in range(rng.integers(1, 4)):
        at = 0 if rng.random() < .2 else int(rng.integers(n))
        keep[at:at + int(rng.uniform(.05, 1) * RATE)] = 0
    return keep


def unmuting(n, rng):
    """(microphone, talking): a microphone is off for up to 1.5 s, sometimes from the beginning on; when it is on again,
    nobody speaks for up to 2.5 s."""
    on = int(rng.integers(n * 2 // 3))
    off, speech = on - int(rng.uniform(.05, 1.5) * RATE), on + int(rng.uniform(.2, 2.5) * RATE)
    at = np.arange(n)
    return ((at < off) | (at >= on)).astype(np.float32), ((at < off) | (at >= speech)).astype(np.float32)
