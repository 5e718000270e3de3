"""Every fast operator against plain PyTorch in double precision: results and all gradients."""
import unittest

import torch

from vqns_training import network, operators, reference


def gradients(function, inputs, weight):
    inputs = [v.detach().clone().requires_grad_() for v in inputs]
    y = function(*inputs)
    y.backward(weight.to(y.dtype))
    return [y.detach(), *(v.grad for v in inputs)]


class AgainstPlain(unittest.TestCase):
    def setUp(self):
        torch.manual_seed(1)
        self.assertIsNotNone(operators.kernels(), "the fast operators do not build")
        self.threads = torch.get_num_threads()

    def tearDown(self):
        torch.set_num_threads(self.threads)

    def compare(self, fast, plain, inputs, output_shape, what):
        weight = torch.randn(output_shape)
        wanted = gradients(plain, [v.double() for v in inputs], weight)
        for threads in (1, 2, 3):
            torch.set_num_threads(threads)
            for i, (a, b) in enumerate(zip(gradients(fast, inputs, weight), wanted)):
                self.assertEqual(a.shape, b.shape, (what, i))
                part = "output" if i == 0 else f"gradient {i}"
                self.assertLess((a.double() - b).norm(), 1e-5 * b.norm() + 1e-9, f"{what}, {threads} threads, {part}")

    def test_convolutions_both_ways(self):
        # frames, batch, bands; channels in and out, frames and bands that a weight covers; transposed
        cases = [(5, 3, 257, 2, 32, 2, 5, False), (90, 2, 127, 32, 48, 2, 3, False), (7, 1, 63, 48, 64, 1, 3, False),
                 (2, 2, 9, 3, 8, 2, 3, False), (6, 2, 31, 64, 48, 1, 3, True), (40, 3, 63, 48, 32, 2, 3, True),
                 (9, 2, 127, 32, 2, 2, 5, True), (1, 1, 5, 4, 3, 2, 3, True)]
        for case in cases:
            frames, batch, bands, c, out, times, taps, transposed = case
            x = torch.randn(frames, batch, bands, c)
            w = torch.randn(times, taps, out, c) if transposed else torch.randn(times, taps, c, out)
            fast = operators.TransposedConvolution if transposed else operators.Convolution
            plain = reference.transposed_convolution if transposed else reference.convolution
            inputs = [x, w, torch.randn(out)]
            self.compare(fast.apply, plain, inputs, plain(*inputs).shape, case)

    def test_normalisation_with_prelu(self):
        for frames, batch, bands, c in [(3, 2, 127, 32), (2, 1, 63, 48), (1, 1, 1, 64)]:
            x = torch.randn(frames, batch, bands, c) * 3 + 1
            self.compare(operators.NormPRelu.apply, reference.norm_prelu, [x, *torch.randn(3, c)], x.shape, c)
        with self.assertRaises(ValueError):
            operators.NormPRelu.apply(torch.randn(1, 1, 2, 40), *torch.randn(3, 40))

    def test_recurrent_layer_both_ways(self):
        gru = torch.nn.GRU(64, 64)
        names = [n for n, _ in gru.named_parameters()]
        for over_time in (False, True):
            # the last two fill blocks and chunks of rows unevenly
            for shape in [(1, 1, 1, 64), (1, 2, 31, 64), (11, 3, 31, 64), (23, 2, 90, 64), (260, 1, 7, 64)]:
                inputs = [torch.randn(shape) * 2, *(p.detach() * 3 for p in gru.parameters())]

                def plain(x, *weights, over_time=over_time):
                    layer = torch.nn.GRU(64, 64).double()
                    for name, w in zip(names, weights):  # as tensors with a gradient of their own
                        del layer._parameters[name]
                        setattr(layer, name, w)
                    layer._flat_weights = list(weights)
                    return reference.recurrent(x, layer, over_time)

                def fast(*v, over_time=over_time):
                    return operators.Recurrent.apply(*v, over_time)

                self.compare(fast, plain, inputs, shape, (shape, over_time))

    def test_gates_wide_open_or_shut_are_numbers(self):
        gru = torch.nn.GRU(64, 64)
        weights = [p.detach() for p in gru.parameters()]
        for size in (30, 100, 1e4):
            x = torch.randn(3, 1, 31, 64) * size
            for over_time in (False, True):
                def fast(*v, over_time=over_time):
                    return operators.Recurrent.apply(*v, over_time)
                result = gradients(fast, [x, *weights], torch.ones(x.shape))
                self.assertTrue(all(v.isfinite().all() for v in result), size)
                torch.testing.assert_close(result[0], reference.recurrent(x, gru, over_time), atol=1e-4, rtol=0)

    def test_dense_layer_with_norm_and_detour(self):
        for maps, bands in [(1, 31), (9, 31), (20, 31), (3, 5)]:
            h, around = torch.randn(2, maps, 1, bands, 64)
            inputs = [h, torch.randn(64, 64), torch.randn(64), *torch.randn(2, bands, 64), around]
            self.compare(operators.DenseNorm.apply, reference.dense_norm, inputs, h.shape, (maps, bands))

    def test_whole_network_and_refusal_of_a_second_backward_pass(self):
        net = network.Network()
        plain = network.Network().double()
        plain.load_state_dict(net.state_dict())
        x = torch.randn(2, 4000) * .1
        loss = net.denoise(x).square().sum()
        loss.backward(retain_graph=True)
        plain.denoise(x.double()).square().sum().backward()
        for (name, a), b in zip(net.named_parameters(), plain.parameters()):
            self.assertLess((a.grad.double() - b.grad).norm(), 1e-4 * b.grad.norm() + 1e-9, name)
        with self.assertRaises(AssertionError):
            loss.backward()


if __name__ == "__main__":
    unittest.main()
