"""Batches mixed in other processes, in their order whatever the number of processes."""
import multiprocessing
import os

from .mixer import Mixer


def keep_mixing(pipe, mixer_arguments, first, every, size):
    os.setpgrp()  # Ctrl-C and signals to all of a job are for the run, which ends its mixers
    mixer, number = Mixer(**mixer_arguments), first
    while True:
        pipe.send(mixer.batch(number, size))  # waits until the batch before has been taken
        number += every


class Feeder:
    """Batches first, first + 1, ... of `size` pieces each; every process has one ready."""

    def __init__(self, mixer_arguments, first, size, processes=1):
        context = multiprocessing.get_context("spawn")
        self.pipes, self.workers, self.turn = [], [], 0
        for i in range(processes):
            out, into = context.Pipe(duplex=False)
            self.workers.append(context.Process(target=keep_mixing, daemon=True,
                                                args=(into, mixer_arguments, first + i, processes, size)))
            self.workers[-1].start()
            into.close()  # so that the end of the process is the end of the pipe
            self.pipes.append(out)

    def next(self):
        pipe = self.pipes[self.turn]
        self.turn = (self.turn + 1) % len(self.pipes)
        try:
            return pipe.recv()
        except (EOFError, OSError):
            raise RuntimeError("a mixing process has ended; its error stands above") from None

    def close(self):
        for worker in self.workers:
            worker.terminate()
            worker.join()
