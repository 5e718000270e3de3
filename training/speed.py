#!/usr/bin/python3
"""Measures how fast training steps run: seconds of audio per second, and per second of processor time, which says more
on a machine that does other work too. Noise stands in for the mixtures."""
import argparse
import os
import time

import torch

from vqns_training import losses, operators
from vqns_training.environment import settle
from vqns_training.state import State

parser = argparse.ArgumentParser(description=__doc__)
parser.add_argument("--steps", type=int, default=8)
parser.add_argument("--batch", type=int, default=5)
parser.add_argument("--seconds", type=float, default=4)
parser.add_argument("--threads", type=int, default=os.cpu_count())
parser.add_argument("--device", default="cuda" if torch.cuda.is_available() else "cpu")
parser.add_argument("--plain", action="store_true", help="plain PyTorch instead of the fast operators")


def measure(a):
    torch.set_num_threads(a.threads)
    torch.set_flush_denormal(True)
    state = State(a.device)
    noisy, clean = torch.randn(2, a.batch, int(a.seconds * 16000), device=a.device) * .05
    one = torch.ones(a.batch, device=a.device)

    def step():
        state.advance(losses.measure(state.net, noisy, clean, one, one, losses.Weights())[0], 1e-4, 5)

    step()
    wall, processor = time.perf_counter(), time.process_time()
    for _ in range(a.steps):
        step()
    audio = a.steps * a.batch * a.seconds
    return audio / (time.perf_counter() - wall), audio / (time.process_time() - processor)


if __name__ == "__main__":
    settle()
    a = parser.parse_args()
    if a.plain:
        os.environ["VQNS_PLAIN"] = "1"
    wall, processor = measure(a)
    how = "fast operators" if a.device == "cpu" and operators.kernels() is not None else "plain PyTorch"
    print(f"{how} on {a.device}, {a.threads} threads: {wall:.1f} x real time, {processor:.1f} per second of processor time, "
          f"load {os.getloadavg()[0]:.1f}")
