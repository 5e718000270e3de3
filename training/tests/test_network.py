"""The network's timing, its framing against a plain model, and the parameter file."""
import struct
import tempfile
import unittest
from pathlib import Path

import numpy as np
import torch

import golden
import mean
from vqns_training import framing, network, tables

MODEL = golden.ROOT / "ns/dnn/model/vqns.safetensors"


class Framing(unittest.TestCase):
    def test_against_a_loop_over_frames(self):
        rng = np.random.default_rng(1)
        x = rng.standard_normal((2, 160 * 9 + 37)) * .1 + .05
        re, im = framing.spectra(torch.from_numpy(x))
        window = .5 - .5 * np.cos(2 * np.pi * np.arange(480) / 480)
        n = np.arange(512)
        wanted = np.zeros((2, 160 * 9))
        for b in range(2):
            for t in range(7):
                s = np.fft.fft(np.pad(x[b, 160 * t:160 * t + 480] * window, (0, 32)))[:257]
                np.testing.assert_allclose(re[t, b].numpy() + 1j * im[t, b].numpy(), s, atol=1e-9)
                inner = sum(2 * (s[k] * np.exp(2j * np.pi * k * n / 512)).real for k in range(1, 256))
                ends = s[0].real / 2 * (1 + (-1.) ** n)  # zero frequency halved, its half at the highest one too
                wanted[b, 160 * t:160 * t + 480] += ((inner + ends) / 512)[:480] * window
        np.testing.assert_allclose(framing.synthesis(re, im).numpy(), wanted, atol=1e-9)

    def test_gain_of_the_overlapping_windows(self):
        t = np.arange(16000)
        x = torch.from_numpy(.3 * np.sin(2 * np.pi * 1000 * t / 16000))[None]
        y = framing.synthesis(*framing.spectra(x))
        inner = slice(320, y.shape[1] - 320)
        np.testing.assert_allclose(y[:, inner], framing.WINDOW_GAIN * x[:, inner], atol=1e-6)


class Network(unittest.TestCase):
    def test_looks_two_frames_ahead_and_no_further(self):
        torch.manual_seed(2)
        net = network.Network().double()
        re, im = torch.randn(2, 12, 1, 257, dtype=torch.float64)
        with torch.no_grad():
            before = net.mask(re, im)
            changed = re.clone()
            changed[7] += .1 * torch.randn(1, 257)
            differs = (net.mask(changed, im) != before).flatten(1).any(1)
            self.assertEqual(before.shape, (10, 1, 257, 2))
            self.assertEqual(differs.tolist(), [t >= 5 for t in range(10)])
            # a part of the input gives a part of the output: nothing but the past is carried
            np.testing.assert_allclose(net.mask(re[:8], im[:8]), before[:6], atol=1e-12)

    def test_input_norm_counts_its_padding(self):
        re, im = torch.randn(2, 3, 2, 257, dtype=torch.float64) + .5
        x = np.concatenate([np.stack([re.numpy(), im.numpy()], -1).reshape(3, 2, 514), np.zeros((3, 2, 14))], -1)
        mean = x.sum(-1, keepdims=True) / 514
        wanted = (x - mean) / np.sqrt(((x - mean) ** 2).sum(-1, keepdims=True) / 514 + .001)
        got = network.InputNorm()(re, im).detach().numpy().reshape(3, 2, 514)
        np.testing.assert_allclose(got, wanted[..., :514], rtol=1e-5, atol=1e-6)

    def test_golden_vectors_are_of_this_model_and_this_code(self):
        data = (golden.ROOT / "tests/data/golden.bin").read_bytes()
        count, delivered = struct.unpack("<ii", data[31:39])
        pcm = np.frombuffer(data, "<i2", count, 39)
        output = np.frombuffer(data, "<f4", delivered, 39 + 2 * count)
        self.assertEqual(data[14:30].decode(), tables.model_id(MODEL))
        np.testing.assert_allclose(golden.through_pytorch(pcm, MODEL), output, atol=1e-6)


class ParameterFile(unittest.TestCase):
    def setUp(self):
        torch.manual_seed(3)
        self.net = network.Network()
        with torch.no_grad():
            for p in self.net.parameters():
                p.normal_()
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.file = Path(self.folder.name) / "m.safetensors"

    def test_every_value_lies_where_the_library_reads_it(self):
        w = {k: v.numpy() for k, v in self.net.state_dict().items()}
        tables.save(self.file, self.net.state_dict())
        t, _ = tables.read(self.file)
        rng = np.random.default_rng(4)

        def spots(*shape):
            return zip(*(rng.integers(0, n, 200) for n in shape))

        for i in range(3):
            times, taps, c_in, out = w[f"encoder.{i}.weight"].shape
            for time, k, c, o in spots(times, taps, c_in, out):
                at = o // 8 * (times * taps * c_in * 8) + time * (taps * c_in * 8) + (k * c_in + c) * 8 + o % 8
                self.assertEqual(t[f"fconv2d{i}"][at], w[f"encoder.{i}.weight"][time, k, c, o])
            times, taps, out, c_in = w[f"decoder.{i}.weight"].shape
            for time, k, o, c in spots(times, taps, out, c_in):
                at = time * (taps * out * c_in) + k * (out * c_in)
                at += o // 8 * (c_in * 8) + c * 8 + o % 8 if i < 2 else o * 32 + c
                self.assertEqual(t[f"dconv2d{i}"][at], w[f"decoder.{i}.weight"][time, k, o, c])
        for s in range(4):
            for o, i, gate in spots(64, 64, 3):
                row = [1, 0, 2][gate] * 64 + o  # PyTorch has r, z, n; the tables z, r, n
                at = o // 8 * 1536 + i * 24 + gate * 8 + o % 8
                self.assertEqual(t[f"grui{s}"][at], w[f"stages.{s}.gru.weight_ih_l0"][row, i])
                self.assertEqual(t[f"gruh{s}"][at], w[f"stages.{s}.gru.weight_hh_l0"][row, i])
                at = o // 8 * 48 + gate * 16 + o % 8
                self.assertEqual(t[f"grub{s}"][at], w[f"stages.{s}.gru.bias_ih_l0"][row])
                self.assertEqual(t[f"grub{s}"][at + 8], w[f"stages.{s}.gru.bias_hh_l0"][row])
                self.assertEqual(t[f"dense{s}"][o // 8 * 512 + i * 8 + o % 8], w[f"stages.{s}.dense.weight"][o, i])
            np.testing.assert_array_equal(t[f"gbn{s}"], np.append(w[f"stages.{s}.gain"], w[f"stages.{s}.offset"]))
        np.testing.assert_array_equal(t["ln0"][:514], w["input_norm.gain"])
        np.testing.assert_array_equal(t["ln0"][528:1042], w["input_norm.offset"])

    def test_round_trips(self):
        tables.save(self.file, self.net.state_dict(), step=7)
        other = network.Network()
        self.assertEqual(tables.load(self.file, other), {"step": "7"})
        for (name, a), b in zip(self.net.state_dict().items(), other.state_dict().values()):
            self.assertTrue(torch.equal(a, b), name)
        about = tables.load(MODEL, other)
        tables.save(self.file, other.state_dict(), **about)
        self.assertEqual(self.file.read_bytes(), MODEL.read_bytes())

    def test_mean_of_two(self):
        tables.save(self.file, self.net.state_dict(), step=7)
        out = self.file.with_name("mean.safetensors")
        mean.main([str(MODEL), str(self.file), str(out), "--share", ".3"])
        (a, _), (b, _), (between, about) = map(tables.read, (MODEL, self.file, out))
        for name in a:
            np.testing.assert_allclose(between[name], .7 * a[name] + .3 * b[name], atol=1e-6)
        self.assertEqual(about, {"step": "7", "share_in_mean": "0.3"})

    def test_refuses_what_does_not_fit(self):
        t = tables.read(MODEL)[0]
        shapes = {k: v.shape for k, v in self.net.state_dict().items()}
        for name in ("grui2", "ln0", "dconv2d2_bias"):
            with self.assertRaisesRegex(ValueError, name):
                tables.from_tables({**t, name: t[name][:-1]}, shapes)
            with self.assertRaises(KeyError):
                tables.from_tables({k: v for k, v in t.items() if k != name}, shapes)
        with torch.no_grad():
            self.net.decoder[1].bias[3] = float("nan")
        with self.assertRaisesRegex(ValueError, "dconv2d1_bias"):
            tables.save(self.file, self.net.state_dict())


if __name__ == "__main__":
    unittest.main()
