"""How long a run lasts, and its learning rate: warm-up, constant, and a decay over the last share of the run, so that
a run can be prolonged from where the decay began."""
import time


class Budget:
    """A run of so many hours, `used` seconds of which are over, or of so many steps from the first on."""

    def __init__(self, first, hours=None, steps=None, used=0.):
        assert (hours is None) != (steps is None)
        self.first, self.hours, self.steps, self.began = first, hours, steps, time.monotonic() - used

    def used(self):
        """Seconds."""
        return time.monotonic() - self.began

    def left(self, step):
        """The share of the run that is left: from 1 to 0."""
        done = self.used() / 3600 / self.hours if self.steps is None else (step - self.first) / self.steps
        return max(0., 1 - done)


def rate(base, step, left, warm_up, decay):
    return base * min(1, (step + 1) / max(warm_up, 1)) * min(1, left / decay if decay else 1)
