"""How long a run lasts, and its learning rate: warm-up, constant, and a decay over the last share of the run, so that
a run can be prolonged from where the decay began."""
import time


class Budget:
    """A run of so many hours, or of so many steps."""

    def __init__(self, first, hours=None, steps=None):
        assert (hours is None) != (steps is None)
        self.first, self.hours, self.steps, self.began = first, hours, steps, time.monotonic()

    def left(self, step):
        """The share of the run that is left: from 1 to 0."""
        used = (step - self.first) / self.steps if self.steps else (time.monotonic() - self.began) / 3600 / self.hours
        return max(0., 1 - used)


def rate(base, step, left, warm_up, decay):
    return base * min(1, (step + 1) / warm_up) * min(1, left / decay if decay else 1)
