"""What has been done and what could not be, in two files of JSON lines at the top of the output tree.

The journal has a line for each finished file: its name, size and time of modification of the input, size of the
output, and the settings; and one before a file that is there is made anew. The last line of a name counts. It is
written by one process alone, which holds a lock on it.
"""
import fcntl
import json
import os
from types import TracebackType
from typing import IO

from .files import Outcome, Settings

JOURNAL = ".vqns-corpus.jsonl"
REPORT = "vqns-corpus-failed.jsonl"


class InUse(Exception):
    """Another run is writing to the tree."""


class Journal:
    """Of one run: `done` asks, `begin` and `add` tell. Names are relative to the trees.

    Raises InUse while another run has the tree.
    """

    def __init__(self, tree: str, settings: Settings) -> None:
        self.settings = settings
        self._report_name = os.path.join(tree, REPORT)
        self._report: IO[str] | None = None
        self._journal = open(os.path.join(tree, JOURNAL), "a+", encoding="utf-8")
        try:
            fcntl.flock(self._journal, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except OSError as error:
            self._journal.close()
            raise InUse(f"{tree}: another run is writing there") from error
        self._files: dict[str, tuple[int, int, int]] = {}
        self._read()
        if os.path.exists(self._report_name):
            os.unlink(self._report_name)  # it told of an earlier run

    def _read(self) -> None:
        self._journal.seek(0)
        line = "\n"
        for line in self._journal:
            try:
                entry = json.loads(line)
                name, current = entry["file"], entry.get("settings") == self.settings
                known = (entry["size"], entry["mtime_ns"], entry["written"]) if current else None
            except (ValueError, KeyError, TypeError, AttributeError):
                continue  # a line that a crash cut short
            if known is not None:
                self._files[name] = known
            else:
                self._files.pop(name, None)
        if not line.endswith("\n"):
            self._journal.write("\n")

    def done(self, name: str, source: str, target: str) -> bool:
        """Whether the target was made of the source as it is now, with the settings of this run, and is still there."""
        known = self._files.get(name)
        if known is None:
            return False
        try:
            there, made = os.stat(source), os.stat(target)
        except OSError:
            return False
        return known == (there.st_size, there.st_mtime_ns, made.st_size)

    def begin(self, name: str) -> None:
        """A file that is there is made anew: should this run be ended, it may be either."""
        self._journal.write(json.dumps({"file": name, "begun": True}) + "\n")
        self._journal.flush()

    def add(self, name: str, outcome: Outcome) -> None:
        """A finished file, or one that could not be."""
        if "error" in outcome:
            if self._report is None:
                self._report = open(self._report_name, "w", encoding="utf-8")
            file, entry = self._report, {"file": name, "error": outcome["error"]}
        else:
            file, entry = self._journal, {"file": name, **outcome, "settings": self.settings}
        file.write(json.dumps(entry) + "\n")
        file.flush()

    def __enter__(self) -> "Journal":
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        if self._report is not None:
            self._report.close()
        os.fsync(self._journal.fileno())
        self._journal.close()
