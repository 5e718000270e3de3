#include "network.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "kernel_table.h"
#include "levels.h"
#include "vq_ns_model.h"

namespace {

/* The network once more, in double precision, written from its equations: one plain loop nest a layer, maps
 * as vectors of rows, true sigmoid and tanh. */
using Row = std::vector<double>;
using Map = std::vector<Row>;

double weight(const float* w, int t, int k, int c, int o, int taps, int ch_in, int times) {
    return w[((o / 8 * times + t) * taps * ch_in + k * ch_in + c) * 8 + o % 8];
}

Map convolution(const std::vector<Map>& frames, const float* w, const float* bias, int ch_out, int taps) {
    const int times = static_cast<int>(frames.size());
    const int ch_in = static_cast<int>(frames[0][0].size());
    Map out((frames[0].size() - static_cast<size_t>(taps)) / 2 + 1, Row(static_cast<size_t>(ch_out)));
    for (size_t f = 0; f < out.size(); ++f) {
        for (int o = 0; o < ch_out; ++o) {
            double sum = bias[o];
            for (int t = 0; t < times; ++t) {
                for (int k = 0; k < taps; ++k) {
                    for (int c = 0; c < ch_in; ++c) {
                        sum += weight(w, t, k, c, o, taps, ch_in, times) *
                               frames[static_cast<size_t>(t)][2 * f + static_cast<size_t>(k)]
                                     [static_cast<size_t>(c)];
                    }
                }
            }
            out[f][static_cast<size_t>(o)] = sum;
        }
    }
    return out;
}

/* Adds one frame's contributions to each of the `times` maps in out. */
void transposed(const Map& in, const std::function<double(int, int, int, int)>& w, std::vector<Map>& out,
                int taps) {
    for (size_t t = 0; t < out.size(); ++t) {
        for (size_t f = 0; f < in.size(); ++f) {
            for (int k = 0; k < taps; ++k) {
                Row& row = out[t][2 * f + static_cast<size_t>(k)];
                for (size_t o = 0; o < row.size(); ++o) {
                    for (size_t c = 0; c < in[f].size(); ++c) {
                        row[o] +=
                            w(static_cast<int>(t), k, static_cast<int>(c), static_cast<int>(o)) * in[f][c];
                    }
                }
            }
        }
    }
}

double deviation(const Row& x, double mean) {
    double sum = 0;
    for (const double v : x) sum += (v - mean) * (v - mean);
    return std::sqrt(sum / static_cast<double>(x.size()) + 0.001);
}

double mean_of(const Row& x) {
    double sum = 0;
    for (const double v : x) sum += v;
    return sum / static_cast<double>(x.size());
}

void normalise(Map& map, const float* scale, const float* shift, const float* slope) {
    for (Row& row : map) {
        const double mean = mean_of(row), dev = deviation(row, mean);
        for (size_t c = 0; c < row.size(); ++c) {
            const double y = (row[c] - mean) / dev * scale[c] + shift[c];
            row[c] = y > 0 ? y : y * slope[c];
        }
    }
}

void add(Map& a, const Map& b) {
    for (size_t f = 0; f < a.size(); ++f) {
        for (size_t c = 0; c < a[f].size(); ++c) a[f][c] += b[f][c];
    }
}

Map zeros(size_t bins, size_t channels) {
    return Map(bins, Row(channels));
}

struct Model {
    Map input_before = zeros(257, 2), layer0_before = zeros(127, 32), layer0, layer1, encoded;
    Map layer1_carry = zeros(127, 32), mask_carry = zeros(257, 2);
    std::vector<Map> states = std::vector<Map>(4, zeros(31, 64));
    int frames = 0;

    /* Null until the third frame. */
    std::unique_ptr<Map> encode(const Map& input) {
        const float* const* w = encoder_weights;
        ++frames;
        if (frames > 1) {
            layer0_before = layer0.empty() ? zeros(127, 32) : layer0;
            layer0 = convolution({input_before, input}, w[0], w[1], 32, 5);
            normalise(layer0, w[2], w[3], w[4]);
        }
        input_before = input;
        if (frames < 3) return nullptr;
        layer1 = convolution({layer0_before, layer0}, w[5], w[6], 48, 3);
        normalise(layer1, w[7], w[8], w[9]);
        encoded = convolution({layer1}, w[10], w[11], 64, 3);
        normalise(encoded, w[12], w[13], w[14]);
        return std::make_unique<Map>(encoded);
    }

    static Row gated_unit(const Row& x, const Row& h, const float* wi, const float* wh, const float* b) {
        const auto product = [](const float* w, const Row& v, size_t unit, size_t gate) {
            double sum = 0;
            for (size_t i = 0; i < 64; ++i) sum += w[unit / 8 * 1536 + i * 24 + gate * 8 + unit % 8] * v[i];
            return sum;
        };
        const auto sigmoid = [](double v) { return 1 / (1 + std::exp(-v)); };
        Row out(64);
        for (size_t u = 0; u < 64; ++u) {
            const auto bias = [&](size_t gate, size_t s) {
                return b[u / 8 * 48 + gate * 16 + s * 8 + u % 8];
            };
            const auto gate = [&](size_t g) {
                return sigmoid(product(wi, x, u, g) + bias(g, 0) + product(wh, h, u, g) + bias(g, 1));
            };
            const double z = gate(0), r = gate(1);
            const double n =
                std::tanh(product(wi, x, u, 2) + bias(2, 0) + r * (product(wh, h, u, 2) + bias(2, 1)));
            out[u] = z * h[u] + (1 - z) * n;
        }
        return out;
    }

    void separate(Map& x) {
        for (size_t s = 0; s < 4; ++s) {
            const float* const* w = sep_weights + 7 * s;
            Row flat;
            Row along(64);
            for (size_t t = 0; t < 31; ++t) {
                Row& state = s % 2 == 0 ? along : states[s][t];
                state = gated_unit(x[t], state, w[0], w[1], w[2]);
                for (size_t j = 0; j < 64; ++j) {
                    double sum = w[4][j];
                    for (size_t i = 0; i < 64; ++i) sum += w[3][j / 8 * 512 + i * 8 + j % 8] * state[i];
                    flat.push_back(sum);
                }
            }
            const double mean = mean_of(flat), dev = deviation(flat, mean);
            for (size_t i = 0; i < flat.size(); ++i)
                x[i / 64][i % 64] += (flat[i] - mean) / dev * w[5][i] + w[6][i];
        }
    }

    /* Mask of the frame, 257 x 2. */
    Map decode(Map x) {
        const float* const* w = decoder_weights;
        const auto blocked = [](const float* table, int taps, int ch_in, int ch_out) {
            return [=](int t, int k, int c, int o) {
                return static_cast<double>(
                    table[((t * taps + k) * ch_out + o / 8 * 8) * ch_in + c * 8 + o % 8]);
            };
        };
        const auto biased = [](Map& map, const float* bias) {
            for (Row& row : map) {
                for (size_t o = 0; o < row.size(); ++o) row[o] += bias[o];
            }
        };
        add(x, encoded);
        std::vector<Map> layer = {zeros(63, 48)};
        transposed(x, blocked(w[0], 3, 64, 48), layer, 3);
        biased(layer[0], w[1]);
        normalise(layer[0], w[2], w[3], w[4]);
        add(layer[0], layer1);

        std::vector<Map> second = {layer1_carry, zeros(127, 32)};
        transposed(layer[0], blocked(w[5], 3, 48, 32), second, 3);
        biased(second[0], w[6]);
        normalise(second[0], w[7], w[8], w[9]);
        add(second[0], layer0_before);
        layer1_carry = second[1];

        std::vector<Map> mask = {mask_carry, zeros(257, 2)};
        const float* last = w[10];
        transposed(
            second[0], [=](int t, int k, int c, int o) { return last[((t * 5 + k) * 2 + o) * 32 + c]; }, mask,
            5);
        biased(mask[0], w[11]);
        mask_carry = mask[1];
        return mask[0];
    }
};

struct Network {
    std::unique_ptr<vq_ns_network> state = std::make_unique<vq_ns_network>();
    vq_ns_kernel_table kernels;
    explicit Network(int32_t level) {
        fill_kernel_table(&kernels, level);
    }
};

std::vector<float> random_frame(std::mt19937& random) {
    std::normal_distribution<float> normal;
    std::vector<float> x(514);
    for (float& v : x) v = normal(random);
    return x;
}

Map as_map(const float* x, size_t bins, size_t channels) {
    Map map = zeros(bins, channels);
    for (size_t i = 0; i < bins * channels; ++i) map[i / channels][i % channels] = x[i];
    return map;
}

struct Ratio {
    double signal = 0, difference = 0;
    void take(const float* got, const Map& want) {
        size_t i = 0;
        for (const Row& row : want) {
            for (const double v : row) {
                signal += v * v;
                difference += (got[i] - v) * (got[i] - v);
                ++i;
            }
        }
    }
    [[nodiscard]] double db() const {
        return 10 * std::log10(signal / difference);
    }
};

TEST(Network, FollowsItsEquationsOverManyFrames) {
    for (const int32_t level : levels()) {
        Network net(level);
        Model model;
        std::mt19937 random(5);
        std::vector<float> map(VQ_NS_MAP2), out(520), re(264), im(264);
        Ratio encoder, separator, decoder;
        for (int frame = 1; frame <= 40; ++frame) {
            const std::vector<float> in = random_frame(random);
            EXPECT_EQ(network_encode(net.state.get(), &net.kernels, in.data(), map.data(), 257), 31);
            const auto encoded = model.encode(as_map(in.data(), 257, 2));
            if (!encoded) continue;
            encoder.take(map.data(), *encoded);
            Map want = *encoded;
            network_separate(net.state.get(), &net.kernels, map.data(), map.data());
            model.separate(want);
            separator.take(map.data(), want);
            for (size_t k = 0; k < 257; ++k) re[k] = 1.0f, im[k] = 0.0f;
            network_decode(net.state.get(), &net.kernels, map.data(), re.data(), im.data(), out.data(), 31);
            Map mask = model.decode(want);
            mask[0][1] = 0;
            decoder.take(out.data(), mask);
        }
        std::printf("level %d, signal to difference: encoder %.1f dB, separator %.1f dB, mask %.1f dB\n",
                    level, encoder.db(), separator.db(), decoder.db());
        EXPECT_GT(encoder.db(), 110);
        EXPECT_GT(separator.db(), 70);
        EXPECT_GT(decoder.db(), 70);
    }
}

TEST(Network, EncoderWarmsUpStepByStep) {
    Network net(VQ_NS_LEVEL_GENERIC);
    std::mt19937 random(6);
    const std::vector<float> first = random_frame(random), second = random_frame(random);
    std::vector<float> map(VQ_NS_MAP2, 7.0f);
    vq_ns_network want = {};
    std::memcpy(want.input_history + 514, first.data(), 514 * sizeof(float));
    want.warm_up = 1;
    network_encode(net.state.get(), &net.kernels, first.data(), map.data(), 257);
    EXPECT_EQ(std::memcmp(net.state.get(), &want, sizeof want), 0)
        << "the first call fills the history alone";
    network_encode(net.state.get(), &net.kernels, second.data(), map.data(), 257);
    EXPECT_EQ(std::memcmp(net.state->input_history, first.data(), 514 * sizeof(float)), 0);
    for (int i = 0; i < VQ_NS_MAP0; ++i) ASSERT_EQ(net.state->layer0_history[i], 0.0f);
    EXPECT_EQ(std::memcmp(net.state->layer0_history + VQ_NS_MAP0, net.state->work, sizeof net.state->work),
              0);
    for (const float v : map) ASSERT_EQ(v, 7.0f) << "no output before the third call";
}

TEST(Network, OnlyStagesAlongTimeRemember) {
    Network net(VQ_NS_LEVEL_GENERIC);
    std::mt19937 random(7);
    std::normal_distribution<float> normal;
    std::vector<float> in(VQ_NS_MAP2), first(VQ_NS_MAP2), second(VQ_NS_MAP2);
    for (float& v : in) v = normal(random);
    network_separate(net.state.get(), &net.kernels, in.data(), first.data());
    for (int s : {0, 2}) {
        for (int i = 0; i < VQ_NS_MAP2; ++i) ASSERT_EQ(net.state->recurrent_state[s][i], 0.0f);
    }
    network_separate(net.state.get(), &net.kernels, in.data(), second.data());
    EXPECT_NE(first, second);
    std::memset(net.state->recurrent_state, 0, sizeof net.state->recurrent_state);
    network_separate(net.state.get(), &net.kernels, in.data(), second.data());
    EXPECT_EQ(first, second);
}

TEST(Network, LoudOrSilentInputStaysFinite) {
    for (const int32_t level : levels()) {
        Network net(level);
        std::vector<float> in(520), map(VQ_NS_MAP2), out(520), re(264, 1e3f), im(264, -1e3f);
        for (int frame = 0; frame < 60; ++frame) {
            const float scale = frame % 3 == 0 ? 0.0f : frame % 3 == 1 ? 25.0f : 1e-38f;
            for (size_t i = 0; i < 514; ++i) in[i] = i % 2 == 0 ? scale : -scale;
            network_encode(net.state.get(), &net.kernels, in.data(), map.data(), 257);
            if (frame < 2) continue;
            network_separate(net.state.get(), &net.kernels, map.data(), map.data());
            network_decode(net.state.get(), &net.kernels, map.data(), re.data(), im.data(), out.data(), 31);
            for (size_t i = 0; i < 514; ++i) ASSERT_TRUE(std::isfinite(out[i])) << frame << " " << i;
        }
        for (const auto& state : net.state->recurrent_state) {
            for (const float v : state) ASSERT_LE(std::fabs(v), 1.00001f);
        }
    }
}

TEST(ModelTables, AreAlignedAndReachedInOrder) {
    const float* const slots[] = {ln0,
                                  encoder_weights[0],
                                  encoder_weights[5],
                                  sep_weights[0],
                                  sep_weights[27] - 1984,
                                  decoder_weights[0],
                                  decoder_weights[10]};
    for (const float* table : slots) EXPECT_EQ(reinterpret_cast<uintptr_t>(table) % 256, 0u);
    EXPECT_EQ(encoder_weights[13], fbn2 + 64);
    EXPECT_EQ(sep_weights[7 * 2 + 1], gruh2);
    EXPECT_EQ(sep_weights[7 * 3 + 6], gbn3 + 1984);
    EXPECT_EQ(decoder_weights[11], dconv2d2_bias);
    for (int slot : {12, 13, 14}) EXPECT_EQ(decoder_weights[slot], nullptr);
    EXPECT_EQ(std::strlen(vqns_model_id()), 16u);
}

}  // namespace
