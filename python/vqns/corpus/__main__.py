"""Takes the noise out of all sound files of a folder tree, into a tree of the same shape.

Format, rate, channels and texts of each file are kept, its sound lies sample on sample with the original. A file that
is there is whole. Started again, the command goes on where it stopped: files that are done are left alone unless their
input, the settings or the model have changed. What could not be read stands in OUT_TREE/vqns-corpus-failed.jsonl, a
JSON object a line. Exit status: 0 all done, 1 some files could not be, 2 could not start, 130 interrupted.
"""
import argparse
import itertools
import os
import signal
import sys
from collections.abc import Iterator
from typing import TYPE_CHECKING

from .._arrays import check_limit
from .progress import Progress

if TYPE_CHECKING:
    from .journal import Journal
    from .run import Task


def arguments() -> argparse.Namespace:
    """Of the command line."""
    parser = argparse.ArgumentParser(prog="python3 -m vqns.corpus", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("in_tree", metavar="IN_TREE")
    parser.add_argument("out_tree", metavar="OUT_TREE", help="made if it is not there")
    where = parser.add_mutually_exclusive_group()
    where.add_argument("--workers", type=int, metavar="N", default=len(os.sched_getaffinity(0)),
                       help="worker processes on this machine (default: one a core)")
    where.add_argument("--scheduler", metavar="ADDRESS",
                       help="run on this Dask cluster, such as tcp://host:8786; both trees on storage that it shares")
    parser.add_argument("--attenuation-limit", type=limit, metavar="DB",
                        help="turn noise down by this much at most (default: no limit)")
    parser.add_argument("--level", action=argparse.BooleanOptionalAction, default=True,
                        help="bring speech to an even level (default: yes)")
    parser.add_argument("--suffixes", metavar="LIST", type=endings,
                        help="endings of the files to take, such as .wav,.flac (default: those of sound files); hidden "
                        "files and folders are left aside")
    parser.add_argument("--quiet", "-q", action="store_true", help="no progress and no summary")
    options = parser.parse_args()
    if options.workers < 1:
        parser.error("argument --workers: must be 1 or more")
    if not os.path.isdir(options.in_tree):
        parser.error(f"{options.in_tree}: no such folder")
    trees = [os.path.realpath(t) for t in (options.in_tree, options.out_tree)]
    if os.path.commonpath(trees) in trees:
        parser.error("one tree lies within the other")
    return options


def endings(text: str) -> tuple[str, ...]:
    """A list of endings of names."""
    found = tuple(part for part in (p.strip().lower() for p in text.split(",")) if part)
    if not found:
        raise argparse.ArgumentTypeError("names no ending")
    return found


def limit(text: str) -> float | None:
    """An attenuation limit."""
    try:
        return check_limit(float(text))
    except ValueError:
        raise argparse.ArgumentTypeError(f"{text!r} is not a number of dB from 0 on") from None


def denoise_tree(options: argparse.Namespace, journal: "Journal") -> int:
    """All that is due; returns the exit status."""
    from . import files, run
    in_tree, out_tree = os.path.abspath(options.in_tree), os.path.abspath(options.out_tree)
    suffixes = options.suffixes or files.SUFFIXES
    unreadable: list[OSError] = []
    names = list(run.sound_files(in_tree, suffixes, unreadable.append))
    progress = Progress(len(names) + len(unreadable), options.quiet)
    for error in unreadable:
        journal.add(os.path.relpath(error.filename, in_tree), {"error": error.strerror})
        progress.failed += 1
    folders = set()

    def due() -> Iterator["Task"]:
        for name in names:
            task = run.Task(name, os.path.join(in_tree, name), os.path.join(out_tree, name))
            if journal.done(name, task.source, task.target):
                progress.skipped += 1
            else:
                folders.add(os.path.dirname(task.target))
                if os.path.exists(task.target):
                    journal.begin(name)
                yield task

    tasks = due()
    first = next(tasks, None)
    if first is not None:
        where = options.scheduler
        cluster = run.cluster_client(where, in_tree, out_tree) if where else run.local_client(options.workers)
        try:
            with cluster as client:
                for task, outcome in run.outcomes(client, itertools.chain([first], tasks), journal.settings):
                    journal.add(task.name, outcome)
                    progress.add(outcome)
        finally:
            run.remove_partials(folders)
    progress.end()
    return 1 if progress.failed else 0


def start(options: argparse.Namespace) -> int:
    """The command without its interrupts; returns the exit status."""
    try:
        from . import files, journal, run
    except ImportError as error:
        sys.stderr.write(f"vqns.corpus: {error} (Debian packages python3-distributed, python3-soundfile)\n")
        return 2
    try:
        os.makedirs(options.out_tree, exist_ok=True)
        with journal.Journal(options.out_tree, files.settings_of(options.attenuation_limit, options.level)) as opened:
            return denoise_tree(options, opened)
    except (run.CannotRun, journal.InUse, OSError) as error:
        sys.stderr.write(f"vqns.corpus: {error}\n")
        return 2


def main() -> int:
    """The command; returns its exit status."""
    options = arguments()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(128 + signal.SIGTERM))  # ends as tidily as by Ctrl-C
    try:
        return start(options)
    except KeyboardInterrupt:
        sys.stderr.write("\nvqns.corpus: interrupted; the same command goes on from here\n")
        return 128 + signal.SIGINT


if __name__ == "__main__":
    sys.exit(main())
