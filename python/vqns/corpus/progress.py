"""How far a run has come, on standard error."""
import sys
import time
from datetime import timedelta
from typing import Any


class Progress:
    """On a terminal a line that changes, elsewhere a line now and then, and one at the end."""

    def __init__(self, total: int, quiet: bool) -> None:
        self.total, self.quiet, self.live = total, quiet, sys.stderr.isatty()
        self.skipped = self.done = self.failed = 0
        self.seconds = 0.0  # of sound
        self.start = self.shown = time.monotonic()

    def add(self, outcome: dict[str, Any]) -> None:
        """A file that is finished, or could not be."""
        if "error" in outcome:
            self.failed += 1
        else:
            self.done += 1
            self.seconds += outcome["seconds"]
        now = time.monotonic()
        if self.quiet or now < self.shown + (0.2 if self.live else 10):
            return
        self.shown = now
        handled = self.done + self.failed
        spent = now - self.start
        left = clock((self.total - self.skipped - handled) * spent / handled)
        text = (f"{self.skipped + handled} of {self.total} files, {self.failed} failed, {clock(self.seconds)} of sound"
                f", {self.seconds / spent:.0f} times real time, {left} to go")
        sys.stderr.write(f"\r{text}\x1b[K" if self.live else text + "\n")
        sys.stderr.flush()

    def end(self) -> None:
        """What has been done, in a line."""
        if self.quiet:
            return
        sys.stderr.write("\r\x1b[K" if self.live else "")
        sys.stderr.write(f"{self.done} files done ({clock(self.seconds)} of sound in "
                         f"{clock(time.monotonic() - self.start)}), {self.skipped} were done already, "
                         f"{self.failed} could not be\n")


def clock(seconds: float) -> str:
    """As hours, minutes and seconds."""
    return str(timedelta(seconds=round(seconds)))
