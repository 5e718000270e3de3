#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "vq_ns_qmf.h"

namespace {

using Pcm = std::vector<int16_t>;

/* The same filter pair on a plain list of past values, in 64-bit arithmetic with explicit limits. */
struct Model {
    std::vector<int64_t> analysis = std::vector<int64_t>(24), synthesis = std::vector<int64_t>(24);

    static int64_t limit32(int64_t x) {
        return std::clamp<int64_t>(x, INT32_MIN, INT32_MAX);
    }
    static int64_t limit16(int64_t x) {
        return std::clamp<int64_t>(x, INT16_MIN, INT16_MAX);
    }
    /* Newest first; sums over even and odd taps. */
    static std::pair<int64_t, int64_t> push(std::vector<int64_t>& v, int64_t older, int64_t newer) {
        v.insert(v.begin(), {newer, older});
        v.resize(24);
        int64_t even = 0, odd = 0;
        for (size_t k = 0; k < 24; k += 2)
            even += vq_ns_qcoef[k] * v[k], odd += vq_ns_qcoef[k + 1] * v[k + 1];
        return {even, odd};
    }
    void split(const Pcm& in, Pcm& low, Pcm& high) {
        for (size_t i = 0; i + 1 < in.size(); i += 2) {
            const auto [even, odd] = push(analysis, in[i], in[i + 1]);
            const auto band = [](int64_t sum) {
                return static_cast<int16_t>(
                    std::clamp<int64_t>(limit32(2 * limit32(sum)) >> 16, -16384, 16383));
            };
            low.push_back(band(even + odd));
            high.push_back(band(even - odd));
        }
    }
    void merge(const Pcm& low, const Pcm& high, Pcm& out) {
        for (size_t i = 0; i < low.size(); ++i) {
            const auto [even, odd] = push(synthesis, limit16(low[i] + high[i]), limit16(low[i] - high[i]));
            for (const int64_t sum : {even, odd})
                out.push_back(static_cast<int16_t>(limit32(sum * 16) >> 16));
        }
    }
};

Pcm noise(size_t n, uint32_t seed, bool is_hostile) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> uniform(INT16_MIN, INT16_MAX);
    Pcm x(n);
    for (int16_t& v : x)
        v = static_cast<int16_t>(is_hostile ? (random() % 2 ? INT16_MAX : INT16_MIN) : uniform(random));
    return x;
}

TEST(Qmf, MatchesThePlainFiltersInBlocksOfAnySize) {
    for (const bool is_hostile : {false, true}) {
        vq_ns_qmf_state state;
        EXPECT_EQ(vq_ns_qinit(&state), 0);
        Model model;
        for (const int block : {2, 0, 6, 160, -4, 2, 480, 30, 960}) {
            const size_t n = static_cast<size_t>(std::max(block, 0));
            const Pcm in = noise(n, static_cast<uint32_t>(n), is_hostile);
            Pcm low(n / 2), high(n / 2), merged(n), want_low, want_high, want_merged;
            vq_ns_qsplit(&state, in.data(), low.data(), high.data(), static_cast<int16_t>(block));
            model.split(in, want_low, want_high);
            EXPECT_EQ(low, want_low);
            EXPECT_EQ(high, want_high);
            /* Bands of their own at full range, so that sums and differences saturate. */
            const Pcm l = noise(n / 2, 91, is_hostile), h = noise(n / 2, 92, is_hostile);
            vq_ns_qmix(&state, l.data(), h.data(), merged.data(), static_cast<int16_t>(n / 2));
            model.merge(l, h, want_merged);
            EXPECT_EQ(merged, want_merged);
        }
    }
}

TEST(Qmf, ConstantsSettleInTheLowBandAtHalfTheirAmplitude) {
    for (const auto& [x, want_low] :
         {std::pair<int16_t, int16_t>{1000, 500}, {32767, 16383}, {-32768, -16384}}) {
        vq_ns_qmf_state state;
        vq_ns_qinit(&state);
        const Pcm in(64, x);
        Pcm low(32), high(32);
        vq_ns_qsplit(&state, in.data(), low.data(), high.data(), 64);
        for (size_t i = 12; i < 32; ++i) {
            EXPECT_EQ(low[i], want_low);
            EXPECT_NEAR(high[i], 0, 1);
        }
    }
}

TEST(Qmf, SplitThenMergeIsADelayOf22Samples) {
    for (const double hz : {300.0, 1000.0, 6500.0}) {
        vq_ns_qmf_state state;
        vq_ns_qinit(&state);
        Pcm in(1600), low(800), high(800), out(1600);
        for (size_t t = 0; t < in.size(); ++t) {
            in[t] = static_cast<int16_t>(
                8000 * std::sin(2 * 3.141592653589793 * hz * static_cast<double>(t) / 16000));
        }
        vq_ns_qsplit(&state, in.data(), low.data(), high.data(), 1600);
        vq_ns_qmix(&state, low.data(), high.data(), out.data(), 800);
        double error = 0, signal = 0;
        for (size_t t = 100; t < out.size(); ++t) {
            error += std::pow(out[t] - in[t - 22], 2);
            signal += std::pow(in[t - 22], 2);
        }
        EXPECT_GT(10 * std::log10(signal / error), 50) << hz;
    }
}

}  // namespace
