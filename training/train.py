#!/usr/bin/python3
"""Trains the network on the pools DATA/speech, DATA/noise and, if there, DATA/rooms (pack.py makes them).

OUT/checkpoint.pt      everything, at every validation: the same command goes on from it
OUT/constant.pt        the same, where the final decay of the learning rate began: start from it to prolong a run
OUT/vqns.safetensors   the moving average of the weights, as the library compiles it in
OUT/best.safetensors   the one with the lowest held-out loss so far
OUT/log.jsonl          a line a hundred steps and a validation

SIGTERM and Ctrl-C end a run cleanly.
"""
import argparse
import json
import os
import shutil
import signal
import time
from pathlib import Path

import numpy as np
import torch

from vqns_training import losses, schedule, tables, validation
from vqns_training.environment import settle
from vqns_training.feeder import Feeder
from vqns_training.mixer import Chances
from vqns_training.state import State


def above(least, kind=float):
    def number(text):
        value = kind(text)
        if not value > least:
            raise argparse.ArgumentTypeError(f"must be above {least}")
        return value
    return number


parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
parser.add_argument("data")
parser.add_argument("out")
length = parser.add_mutually_exclusive_group(required=True)
length.add_argument("--hours", type=above(0), help="all of the run, over all parts of one that was cut off")
length.add_argument("--steps", type=above(0, int), help="the same")
parser.add_argument("--start", help="parameter file or checkpoint to begin with when OUT has no checkpoint")
parser.add_argument("--shares", default=Path(__file__).parent / "shares.json", help="shares of the sources, as JSON")
parser.add_argument("--chances", nargs="+", default=[], metavar="NAME=SHARE",
                    help="how often things happen to a piece in training (mixer.Chances); held-out pieces keep theirs")
parser.add_argument("--batch", type=above(0, int), default=3, help="pieces a step")
parser.add_argument("--seconds", type=float, default=8, help="of a piece")
parser.add_argument("--seed", type=int, default=1, help="of the mixtures and of fresh weights")
parser.add_argument("--rate", type=float, default=1.5e-3, help="learning rate")
parser.add_argument("--warm-up", type=int, default=500, help="steps")
parser.add_argument("--decay", type=float, default=.2, help="share of the run, its last, in which the rate falls to 0")
parser.add_argument("--weight-decay", type=float, default=.01)
parser.add_argument("--clip", type=float, default=5, help="largest norm of the gradient")
parser.add_argument("--average", type=float, default=.999, help="of the weights: how much of it each step keeps")
parser.add_argument("--validate-every", type=above(0, int), default=500, metavar="STEPS")
parser.add_argument("--held-out", type=above(0, int), default=64, metavar="PIECES", help="to validate on")
parser.add_argument("--mixers", type=above(0, int), default=1, help="processes that mix")
parser.add_argument("--threads", type=int, default=os.cpu_count(), help="for the network on the processor")
parser.add_argument("--device", default="cuda" if torch.cuda.is_available() else "cpu")
for name in ("magnitude", "complex", "keep", "wave", "sdr", "segmental", "perceptual", "intelligibility"):
    parser.add_argument(f"--{name}", type=float, default=getattr(losses.Weights, name), help="weight of that term")
parser.add_argument("--windows", type=int, nargs="+", default=list(losses.Weights.windows),
                    help="of the spectral terms, in samples")


class Log:
    def __init__(self, path):
        self.path = path

    def __call__(self, kind, **values):
        with open(self.path, "a") as file:
            file.write(json.dumps({"kind": kind, **values}) + "\n")
        print(kind, *(f"{k} {v:.4g}" if isinstance(v, float) else f"{k} {v}" for k, v in values.items()), flush=True)


class Run:
    def __init__(self, a):
        self.a, self.out = a, Path(a.out)
        self.out.mkdir(parents=True, exist_ok=True)
        self.log = Log(self.out / "log.jsonl")
        torch.manual_seed(a.seed)
        torch.set_num_threads(a.threads)
        torch.set_flush_denormal(True)
        shares = json.loads(Path(a.shares).read_text()) if a.shares else None
        self.weights = losses.Weights(a.magnitude, a.complex, a.keep, a.wave, a.sdr, a.segmental, a.perceptual,
                                      a.intelligibility, tuple(a.windows))
        self.state = State(a.device, a.weight_decay, a.average)
        resumed = (self.out / "checkpoint.pt").exists()
        begin = self.out / "checkpoint.pt" if resumed else a.start
        if begin:
            self.state.load(begin)
        if not resumed:
            self.state.first_step, self.state.seconds_used = self.state.step, 0.
        self.held_out = validation.held_out_batches(a.data, shares, a.held_out)
        chances = Chances(**{name: float(share) for name, share in (c.split("=") for c in a.chances)})
        self.feeder = Feeder({"folder": a.data, "seed": a.seed, "seconds": a.seconds, "shares": shares,
                              "chances": chances}, self.state.step, a.batch, a.mixers)
        self.budget = schedule.Budget(self.state.first_step, a.hours, a.steps, self.state.seconds_used)
        self.decaying = resumed and (self.out / "constant.pt").exists()
        self.best, self.failed, self.stop = self.best_so_far(), 0, False
        self.log("run", begin=str(begin), step=self.state.step, options={k: str(v) for k, v in vars(a).items()})

    def best_so_far(self):
        """Losses compare under the same weights alone."""
        best = self.out / "best.safetensors"
        about = tables.read(best)[1] if best.exists() else {}
        return float(about["held_out_loss"]) if about.get("loss_weights") == str(self.weights) else float("inf")

    def save(self, name):
        self.state.seconds_used = self.budget.used()
        self.state.save(self.out / name)

    def step(self, left):
        """Returns (loss, norm of the gradient, rate, terms)."""
        a, state = self.a, self.state
        batch = [torch.from_numpy(v).to(a.device) for v in self.feeder.next()]
        loss, terms = losses.measure(state.net, *batch, self.weights)
        rate = schedule.rate(a.rate, state.step - state.first_step, left, a.warm_up, a.decay)
        norm = state.advance(loss, rate, a.clip)
        state.seconds_heard += a.batch * a.seconds
        self.failed = 0 if np.isfinite(norm) else self.failed + 1
        if self.failed == 20:
            raise RuntimeError("twenty gradients in a row were not finite")
        return float(loss), norm, rate, {k: float(v) for k, v in terms.items()}

    def validate(self):
        scores = validation.scores(self.state.averaged, self.held_out, self.weights)
        state, hours = self.state, round(self.state.seconds_heard / 3600, 2)
        self.log("validation", step=state.step, hours_heard=hours, **scores)
        self.save("checkpoint.pt")
        tables.save(self.out / "vqns.safetensors", state.averaged.state_dict(), step=state.step, hours_heard=hours,
                    held_out_loss=scores["loss"], loss_weights=self.weights)
        if scores["loss"] < self.best:
            self.best = scores["loss"]
            shutil.copyfile(self.out / "vqns.safetensors", self.out / "best.safetensors")

    def go(self):
        a, state, recent, mark = self.a, self.state, [], time.monotonic()
        self.validate()
        while not self.stop and (left := self.budget.left(state.step)) > 0:
            if left < a.decay and not self.decaying:
                self.decaying = True
                self.save("constant.pt")
            recent.append(self.step(left))
            if state.step % 100 == 0:
                speed = len(recent) * a.batch * a.seconds / (time.monotonic() - mark)
                means = {k: float(np.mean([r[3][k] for r in recent])) for k in recent[0][3]}
                self.log("steps", step=state.step, times_real_time=round(speed, 1), rate=recent[-1][2],
                         loss=float(np.mean([r[0] for r in recent])),
                         gradient=float(np.mean([r[1] for r in recent])), **means)
            if state.step % a.validate_every == 0:
                self.validate()
            if state.step % 100 == 0:
                recent, mark = [], time.monotonic()
        if state.step % a.validate_every:
            self.validate()


def main(arguments=None):
    run = Run(parser.parse_args(arguments))
    for number in (signal.SIGTERM, signal.SIGINT):
        signal.signal(number, lambda *_: setattr(run, "stop", True))
    try:
        run.go()
    finally:
        run.feeder.close()
    return run


if __name__ == "__main__":
    settle()
    main()
