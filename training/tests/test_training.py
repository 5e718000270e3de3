"""The loss against a plain model, the schedule, and runs that stop, go on and learn."""
import contextlib
import io
import json
import os
import unittest
from unittest import mock

import numpy as np
import torch

import train
from tests.sounds import WithPools, speech_like
from vqns_training import intelligibility, losses, metrics, network, perceptual, schedule, tables
from vqns_training.opinion import opinion
from vqns_training.state import State


class Gain(torch.nn.Module):
    """Stands in for the network: its input times a factor, the engine's window gain included."""

    def __init__(self, factor):
        super().__init__()
        self.factor = factor

    def denoise(self, x):
        return x[:, :(x.shape[1] // 160 - 2) * 160] * self.factor


class Loss(unittest.TestCase):
    def terms(self, factor, windows=(480,), noise=0., has_speech=(1., 1.)):
        clean = torch.from_numpy(np.stack([speech_like(1, seed) for seed in (1, 2)]))
        noisy = clean + noise * torch.randn(clean.shape, generator=torch.Generator().manual_seed(1))
        scale = torch.tensor([.4, .7])
        weights = losses.Weights(wave=.5, windows=windows)
        loss, terms = losses.measure(Gain(factor), noisy, clean, scale, torch.tensor(has_speech), weights)
        total = sum(getattr(weights, k) * float(v) for k, v in terms.items())
        self.assertAlmostEqual(float(loss), total, places=5)
        return {k: float(v) for k, v in terms.items()}

    def test_a_gain_costs_what_it_should(self):
        s = np.stack([speech_like(1, seed) * k / losses.COMMON_LEVEL for seed, k in ((1, .4), (2, .7))])[:, 320:-640]
        frames = np.stack([s[:, t:t + 480] for t in range(0, s.shape[1] - 479, 160)]) * np.hanning(481)[:480]
        magnitude = np.abs(np.fft.rfft(frames, 512)) ** .3
        for factor in (.5, .9, 1, 1.3):
            t, expected = self.terms(factor), (1 - factor ** .3) ** 2 * np.mean(magnitude ** 2)
            self.assertAlmostEqual(t["magnitude"], expected, delta=2e-3 * expected + 1e-6, msg=factor)
            self.assertAlmostEqual(t["complex"], expected, delta=5e-3 * expected + 1e-6)
            self.assertAlmostEqual(t["keep"], expected if factor < 1 else 0, delta=2e-3 * expected + 1e-6)
            self.assertAlmostEqual(t["wave"], abs(1 - factor) * np.abs(s).mean(), places=3)
            self.assertAlmostEqual(t["sdr"], -30, places=3)
            wanted = 35 if factor == 1 else min(35, -20 * np.log10(abs(1 - factor)))
            self.assertAlmostEqual(t["segmental"], -wanted, delta=.1)

    def test_noise_costs_more_the_more_there_is_in_every_window(self):
        for windows in ((480,), (256, 512, 1024, 2048)):
            before = self.terms(1, windows)
            for noise in (.01, .03, .1):
                now = self.terms(1, windows, noise)
                for name in ("magnitude", "complex", "wave", "sdr", "segmental"):
                    self.assertGreater(now[name], before[name], (windows, noise, name))
                before = now
        clean = speech_like(1, 1)[320:-640]
        wanted = 10 * np.log10(np.mean(clean ** 2) / .01 ** 2)
        self.assertAlmostEqual(-self.terms(1, noise=.01, has_speech=(1., 0.))["sdr"], wanted, delta=.5)
        self.assertEqual(self.terms(1, noise=.01, has_speech=(0., 0.))["sdr"], 0)


class LikeTheMeasure(unittest.TestCase):
    """The differentiable forms of opinion score and intelligibility."""

    def setUp(self):
        self.s = torch.from_numpy(np.stack([speech_like(4, seed) for seed in (3, 4)])).double()
        self.s[:, 20000:28000] = 0  # a pause
        self.s /= self.s.square().mean(1, keepdim=True).sqrt()
        self.noise = torch.randn(self.s.shape, generator=torch.Generator().manual_seed(1), dtype=torch.float64)

    def test_they_follow_the_measure(self):
        for lost, measure, most, apart in ((perceptual.lost, opinion, 4.644, .3), (intelligibility.lost, metrics.stoi, 1, .04)):
            measured, expected = [], []
            for y in (self.s, .5 * self.s, *(self.s + k * self.noise for k in (.01, .03, .1, .5, 2)), self.noise):
                expected += [most - float(v) for v in lost(y, self.s)]
                measured += [measure(*(v.numpy() for v in row)) for row in zip(self.s, y)]
            np.testing.assert_allclose(expected, measured, atol=apart)
            self.assertGreater(np.corrcoef(expected, measured)[0, 1], .99)

    def test_their_gradient_points_at_the_speech_and_stays_finite(self):
        for lost in (perceptual.lost, intelligibility.lost):
            y = (self.s + .1 * self.noise).detach().requires_grad_()
            before = lost(y, self.s).sum()
            before.backward()
            self.assertLess(float((y.grad * -self.noise).sum()), 0, "less noise, less lost")
            closer = lost(y - y.grad / y.grad.norm(), self.s).sum()
            self.assertLess(float(closer), float(before) - 1e-4)
            for y, s in ((self.s * 0, self.s), (self.s.clone(), self.s), (self.noise, self.s * 0)):
                y = y.detach().requires_grad_()
                value = lost(y, s)
                (value.sum() + 0 * y.sum()).backward()
                self.assertTrue(value.isfinite().all() and y.grad.isfinite().all())
        short = intelligibility.lost(self.noise[:, :6000], self.s[:, :6000])
        self.assertEqual(short.tolist(), [0, 0], "too little speech to tell")


class StoppedRun(train.Run):
    at = None  # the step after which a signal comes

    def step(self, left):
        result = super().step(left)
        self.stop = self.state.step == self.at
        return result


class Running(WithPools):
    def run_training(self, out, steps, *more, stop_at=None):
        threads = os.environ.get("OMP_NUM_THREADS", "1")
        arguments = [str(self.top), str(self.top / out), "--steps", str(steps), "--batch", "2", "--seconds", "1",
                     "--held-out", "8", "--threads", threads, "--device", "cpu", "--perceptual", "0",
                     "--intelligibility", "0", *more]
        StoppedRun.at = stop_at
        with contextlib.redirect_stdout(io.StringIO()), mock.patch.object(train, "Run", StoppedRun):
            return train.main(arguments)

    def lines(self, out, kind):
        lines = map(json.loads, (self.top / out / "log.jsonl").read_text().splitlines())
        return [line for line in lines if line["kind"] == kind]

    def test_schedule(self):
        cases = [(0, 1, 10, .2, .1), (9, 1, 10, .2, 1), (50, .3, 10, .2, 1), (50, .1, 10, .2, .5), (50, 0, 10, .2, 0),
                 (4, .1, 10, .2, .25), (50, .01, 10, 0, 1)]
        for step, left, warm_up, decay, wanted in cases:
            self.assertAlmostEqual(schedule.rate(2., step, left, warm_up, decay), 2 * wanted)
        budget = schedule.Budget(10, steps=4)
        self.assertEqual([budget.left(s) for s in (10, 11, 14, 20)], [1, .75, 0, 0])
        hours = schedule.Budget(10, hours=2, used=1800)
        hours.began -= 1800
        self.assertAlmostEqual(hours.left(999), .5, places=3)

    def test_a_run_in_two_parts_is_the_run_in_one(self):
        options = ("--decay", ".5", "--warm-up", "2", "--perceptual", ".1", "--chances", "second_talker=.5", "room=0")
        whole = self.run_training("whole", 8, *options)
        for stop_at in (2, 6, None):
            parts = self.run_training("parts", 8, *options, stop_at=stop_at)
        self.assertEqual((parts.state.step, parts.state.seconds_heard), (8, 16))
        decay_began = State()
        decay_began.load(self.top / "parts/constant.pt")
        self.assertEqual(decay_began.step, 5)
        for what in ("net", "averaged"):
            for a, b in zip(getattr(whole.state, what).parameters(), getattr(parts.state, what).parameters()):
                self.assertLess((a - b).abs().max(), 1e-6)
        moved = [(a - b).abs().max() for a, b in zip(whole.state.net.parameters(), whole.state.averaged.parameters())]
        self.assertGreater(max(moved), 1e-4)
        loaded = network.Network()
        tables.load(self.top / "parts/vqns.safetensors", loaded)
        for a, b in zip(loaded.parameters(), parts.state.averaged.parameters()):
            self.assertTrue(torch.equal(a, b))

    def test_a_run_learns_keeps_the_best_and_where_decay_began(self):
        run = self.run_training("learns", 40, "--warm-up", "5", "--average", ".8", "--validate-every", "20")
        scores = [line["loss"] for line in self.lines("learns", "validation")]
        self.assertEqual(len(scores), 3)
        self.assertLess(scores[-1], .85 * scores[0], scores)
        best = tables.read(self.top / "learns/best.safetensors")[1]
        self.assertAlmostEqual(float(best["held_out_loss"]), min(scores))
        self.assertEqual(run.best, min(scores))
        with_other_weights = self.run_training("learns", 41, "--perceptual", ".1", "--weight-decay", ".5")
        self.assertGreater(with_other_weights.best, run.best, "another loss has another best")
        self.assertEqual(with_other_weights.state.optimiser.param_groups[0]["weight_decay"], .5)
        constant = State()
        constant.load(self.top / "learns/constant.pt")
        self.assertIn(constant.step, (32, 33))  # less than a fifth is left
        self.assertEqual(self.lines("learns", "run")[0]["step"], 0)

    def test_a_gradient_that_is_not_finite_changes_no_weight(self):
        state = State()
        before = [p.clone() for p in state.net.parameters()]
        x = torch.randn(1, 4800)
        loss = state.net.denoise(x).square().sum()
        self.assertFalse(np.isfinite(state.advance(loss * float("nan"), 1e-3, 5)))
        for a, b in zip(before, state.net.parameters()):
            self.assertTrue(torch.equal(a, b))
        state.advance(state.net.denoise(x).square().sum(), 1e-3, 5)
        for a, b, c in zip(before, state.net.parameters(), state.averaged.parameters()):
            torch.testing.assert_close(c, a + .001 * (b - a))
        self.assertGreater(max(float((a - b).abs().max()) for a, b in zip(before, state.net.parameters())), 5e-4)


if __name__ == "__main__":
    unittest.main()
