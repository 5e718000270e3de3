"""A whole tree on Dask: which files are due, who does them, and what to make of workers that die."""
import contextlib
import logging
import os
import signal
import tempfile
from collections.abc import Callable, Iterator
from dataclasses import dataclass
from multiprocessing import resource_tracker
from typing import Any

import dask
from distributed import CancelledError, Client, KilledWorker, LocalCluster, as_completed

from .. import __version__, model_id
from .files import PARTIAL, Outcome, Settings, denoise_file
from .journal import JOURNAL


@dataclass(frozen=True)
class Task:
    """One file; `name` is relative to the trees."""
    name: str
    source: str
    target: str


class CannotRun(Exception):
    """The cluster is not there, or not fit for the work."""


def sound_files(tree: str, suffixes: tuple[str, ...], unreadable: Callable[[OSError], None]) -> Iterator[str]:
    """Names of the sound files in a tree, links followed, hidden files and folders left aside."""
    around: dict[str, frozenset[tuple[int, int]]] = {}  # what a folder lies in, and itself
    for folder, folders, files in os.walk(tree, onerror=unreadable, followlinks=True):
        there = os.stat(folder)
        here, above = (there.st_dev, there.st_ino), around.get(os.path.dirname(folder), frozenset())
        if here in above:  # a link that leads back
            folders.clear()
            continue
        around[folder] = above | {here}
        folders[:] = sorted(f for f in folders if not f.startswith("."))
        for file in sorted(files):
            if file.lower().endswith(suffixes) and not file.startswith("."):
                yield os.path.relpath(os.path.join(folder, file), tree)


@contextlib.contextmanager
def local_client(workers: int) -> Iterator[Client]:
    """Worker processes on this machine, for as long as the context lasts."""
    options = {"distributed.scheduler.allowed-failures": 1}  # how often a file loses its worker before it is a suspect
    # Ctrl-C is for this process, which then ends the workers. The threads that start them, now and when one has died,
    # pass on the signal mask that they are born with.
    resource_tracker.ensure_running()  # which would unblock the signal when it is started among the workers
    before = signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGINT})
    try:
        with tempfile.TemporaryDirectory(prefix="vqns-corpus-") as folder, dask.config.set(options), \
                LocalCluster(n_workers=workers, threads_per_worker=1, processes=True, dashboard_address=None,
                             local_directory=folder, silence_logs=logging.CRITICAL) as cluster, \
                Client(cluster) as client:
            signal.pthread_sigmask(signal.SIG_SETMASK, before)
            yield client
            with contextlib.suppress(TimeoutError):  # a worker that is ended while it starts complains at length
                client.wait_for_workers(workers, timeout=30)
    finally:
        signal.pthread_sigmask(signal.SIG_SETMASK, before)


@contextlib.contextmanager
def cluster_client(address: str, in_tree: str, out_tree: str, patience: float = 60) -> Iterator[Client]:
    """A running cluster whose workers have this very package and see both trees; a journal is in the latter."""
    try:
        client = Client(address, timeout=patience)
    except (OSError, ValueError) as error:
        raise CannotRun(f"{address}: no scheduler answers ({error})") from error
    with client:
        try:
            client.wait_for_workers(1, timeout=patience)
        except TimeoutError as error:
            raise CannotRun(f"{address}: the scheduler has no workers") from error
        for worker, problem in client.run(_probe(in_tree, os.path.join(out_tree, JOURNAL))).items():
            if problem:
                raise CannotRun(f"worker {worker} {problem}")
        yield client


def _probe(*places: str) -> Callable[[], str]:
    wanted = (__version__, model_id)

    def probe() -> str:  # within a function, so that it travels to workers that lack this module
        import os
        try:
            import soundfile  # noqa: F401
            import vqns
        except ImportError as error:
            return f"cannot import {error.name}"
        if (vqns.__version__, vqns.model_id) != wanted:
            return f"has vqns {vqns.__version__} with model {vqns.model_id}, not {wanted[0]} with {wanted[1]}"
        unseen = [place for place in places if not os.path.exists(place)]
        return f"does not see {unseen[0]}" if unseen else ""
    return probe


def outcomes(client: Client, tasks: Iterator[Task], settings: Settings) -> Iterator[tuple[Task, Outcome]]:
    """Does the tasks, in no order. A few more than the workers can do at once are on the cluster at any time.

    A worker that dies takes down with it what else lies with it, so Dask calls the innocent suspects too: all suspects
    are done once more, each alone, and who then loses workers again is guilty.
    """
    at_work: dict[str, Task] = {}
    queue = as_completed()
    suspects = []

    def submit(task: Task) -> Any:
        return client.submit(denoise_file, task.source, task.target, settings, pure=False)

    def fill() -> None:
        threads = sum(worker["nthreads"] for worker in client.scheduler_info()["workers"].values())
        while len(at_work) < max(2 * threads, 4) and (task := next(tasks, None)) is not None:
            future = submit(task)
            at_work[future.key] = task
            queue.add(future)

    fill()
    for future in queue:
        task = at_work.pop(future.key)
        outcome = _outcome(future)
        if outcome is None:
            suspects.append(task)
        else:
            yield task, outcome
        fill()
    for task in suspects:
        yield task, _outcome(submit(task)) or {"error": "every worker that took it up died"}


def _outcome(future: Any) -> Outcome | None:
    """None if workers died of it."""
    try:
        # A result that dies with its worker is made again while this waits. (`future.result()` looks at the state once
        # more when it has the result, which may be lost again by then.)
        outcome: Outcome = future.client.gather(future)
    except KilledWorker:
        return None
    except (CancelledError, OSError) as error:
        raise CannotRun("the connection to the scheduler was lost") from error
    except Exception as error:  # of bringing work or result over, as `denoise_file` raises nothing
        return {"error": f"{type(error).__name__}: {error}"}
    return outcome


def remove_partials(folders: set[str]) -> None:
    """Clears away what workers that died left behind. No worker may be at work."""
    for folder in folders:
        with contextlib.suppress(OSError), os.scandir(folder) as entries:
            for entry in entries:
                if entry.name.endswith(PARTIAL):
                    os.unlink(entry.path)
