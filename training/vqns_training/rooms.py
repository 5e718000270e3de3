"""Room responses: measured ones from a pool, or made-up ones of sparse reflections and a decaying tail."""
import numpy as np
import scipy.signal

from .audio import RATE

EARLY = .2  # seconds after the direct sound that belong to speech


def simulated(rng):
    t60 = rng.uniform(.12, .9)
    n = int(min(t60 * 1.1, .9) * RATE)
    h = rng.standard_normal(n) * 10 ** (-3 * np.arange(n) / RATE / t60) * rng.uniform(.02, .12)
    h = scipy.signal.lfilter([1], [1, rng.uniform(-.6, .2)], h)
    h[:int(rng.uniform(.002, .02) * RATE)] *= .05  # before the tail builds up
    h[(rng.uniform(.001, .04, rng.integers(2, 9)) * RATE).astype(int)] += rng.uniform(-.5, .6)
    h[0] = 1
    return h


def measured(pool, rng):
    h = pool.piece(rng, pool.longest)
    return h[max(0, int(np.abs(h).argmax()) - 16):][:RATE]


class Room:
    """early: the part of the response that a target keeps; direct: the sample at which sound arrives."""

    def __init__(self, rng, pool=None):
        h = measured(pool, rng) if pool is not None and rng.random() < .3 else simulated(rng)
        h = h * np.exp(-np.arange(len(h)) / RATE * rng.uniform(0, 12))  # drier rooms out of the same responses
        self.direct = int(np.abs(h[:64]).argmax())
        self.response = (h / (np.abs(h[self.direct]) + 1e-9)).astype(np.float32)
        late = np.maximum(np.arange(len(h)) - self.direct - EARLY * RATE, 0)
        self.early = (self.response * np.exp(-late / (.02 * RATE))).astype(np.float32)

    def heard(self, x, response):
        """x in the room, in time with x."""
        return scipy.signal.fftconvolve(x, response)[self.direct:self.direct + len(x)].astype(np.float32)
