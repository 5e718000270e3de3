#include "signal_processing_library.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace {

using i64 = int64_t;
using words = std::vector<int32_t>;
using samples = std::vector<int16_t>;

constexpr auto w32 = [](i64 x) { return static_cast<int32_t>(x); };
std::mt19937 rng(1);

// Extremes, small values and all bits, mixed.
template <typename T>
std::vector<T> any(size_t n) {
    std::vector<T> v(n);
    for (T& x : v) {
        const uint32_t r = static_cast<uint32_t>(rng());
        const T choices[] = {std::numeric_limits<T>::min(), std::numeric_limits<T>::max(),
                             static_cast<T>(r % 3 - 1u)};
        x = rng() % 2 == 0 ? choices[rng() % 3] : static_cast<T>(r);
    }
    return v;
}

// ---- Straightforward models in 64 bits, wrapping by hand. s: the inputs of three sections, the last output
// ----

i64 chain(const std::array<i64, 3>& c, int32_t* s, i64 x) {
    for (size_t k = 0; k < 3; k++) {
        const i64 difference = w32(x - s[k + 1]);
        const i64 d = k == 0 ? w32(difference + 8192) >> 14 : (difference >> 14) + (difference < 0);
        const i64 y = w32(s[k] + d * c[k]);
        s[k] = w32(x);
        x = y;
    }
    s[3] = w32(x);
    return x >> 1;
}

words by_2(const words& in, int32_t* state) {  // unscaled sum of the chains
    words out;
    for (size_t i = 0; i + 1 < in.size(); i += 2) {
        const i64 even = chain({3050, 9368, 15063}, state, in[i]);
        out.push_back(w32(even + chain({821, 6110, 12382}, state + 4, in[i + 1])));
    }
    return out;
}

words widened(const samples& in) {
    words out(in.begin(), in.end());
    for (int32_t& x : out) x = x * 32768 + 16384;
    return out;
}

samples narrowed(const words& in) {
    samples out;
    for (int x : in) out.push_back(static_cast<int16_t>(std::clamp(x >> 15, -32768, 32767)));
    return out;
}

// At the full rate: the decimator on both phases, for the even outputs with the input delayed by one.
words low_pass(const words& in, int32_t* state) {
    words delayed = {state[12]}, out;
    delayed.insert(delayed.end(), in.begin(), in.end());
    const words even = by_2(delayed, state), odd = by_2(in, state + 8);
    for (size_t i = 0; i < odd.size(); i++) out.insert(out.end(), {even[i] >> 15, odd[i] >> 15});
    return out;
}

words three_to_two(const words& in, size_t K) {
    const std::array<i64, 9> taps[2] = {{778, -2050, 1087, 23285, 12903, -3783, 441, 222, 0},
                                        {0, 222, 441, -3783, 12903, 23285, 1087, -2050, 778}};
    words out;
    for (size_t k = 0; k < 2 * K; k++) {
        i64 sum = 16384;
        for (size_t j = 0; j < 9; j++) sum += taps[k % 2][j] * in[k / 2 * 3 + j];
        out.push_back(w32(sum));
    }
    return out;
}

samples to_8k(const samples& in, int32_t* state) {
    const words at_24k = low_pass(by_2(widened(in), state), state + 8);
    words padded(state + 24, state + 32);
    padded.insert(padded.end(), at_24k.begin(), at_24k.end());
    std::copy(at_24k.end() - 8, at_24k.end(), state + 24);
    return narrowed(by_2(three_to_two(padded, 80), state + 32));
}

}  // namespace

TEST(Searches, AgreeWithModelsAtEveryLengthAndThroughThePointers) {
    for (size_t i = 0; i < 700; i++) {
        const size_t n = 1 + rng() % (1 + i % 70);
        const samples v = any<int16_t>(n);
        const words w = any<int32_t>(n);
        const auto [low16, high16] = std::minmax_element(v.begin(), v.end());
        const auto [low32, high32] = std::minmax_element(w.begin(), w.end());
        EXPECT_EQ(TarvikSpl_MaxAbsValueW16(v.data(), n), std::clamp(-*low16, int{*high16}, 32767));
        EXPECT_EQ(TarvikSpl_MaxAbsValueW32(w.data(), n), w32(std::max(-i64{*low32}, i64{*high32})));
        EXPECT_EQ(TarvikSpl_MaxValueW16(v.data(), n), *high16);
        EXPECT_EQ(TarvikSpl_MaxValueW32(w.data(), n), *high32);
        EXPECT_EQ(TarvikSpl_MinValueW16(v.data(), n), *low16);
        EXPECT_EQ(TarvikSpl_MinValueW32(w.data(), n), *low32);
    }
}

TEST(SearchesDeathTest, EmptyVectorStopsTheProgram) {
    const auto message = [](const std::string& type, const std::string& name) {
        return "\\.\\./\\.\\./gmm_vad/source/csrc/signal_processing_library:[0-9]+: " + type + " TarvikSpl_" +
               name + "\\(const " + type + "\\*, size_t\\): Assertion `\\(length\\) > \\(0\\)' failed";
    };
    const int16_t v = 0;
    const int32_t w = 0;
    EXPECT_DEATH(TarvikSpl_MaxAbsValueW16C(&v, 0), message("int16_t", "MaxAbsValueW16C"));
    EXPECT_DEATH(TarvikSpl_MaxAbsValueW32C(&w, 0), message("int32_t", "MaxAbsValueW32C"));
    EXPECT_DEATH(TarvikSpl_MaxValueW16C(&v, 0), message("int16_t", "MaxValueW16C"));
    EXPECT_DEATH(TarvikSpl_MaxValueW32C(&w, 0), message("int32_t", "MaxValueW32C"));
    EXPECT_DEATH(TarvikSpl_MinValueW16C(&v, 0), message("int16_t", "MinValueW16C"));
    EXPECT_DEATH(TarvikSpl_MinValueW32C(&w, 0), message("int32_t", "MinValueW32C"));
}

TEST(Division, TruncatesTowardZeroAndSurvivesZeroAndOverflow) {
    for (int i = 0; i < 20000; i++) {
        const int32_t num = any<int32_t>(1)[0];
        const int16_t den = any<int16_t>(1)[0];
        ASSERT_EQ(TarvikSpl_DivW32W16(num, den), den == 0 ? INT32_MAX : w32(i64{num} / den))
            << num << '/' << den;
    }
}

TEST(Energy, ScalesJustEnoughAndWrapsOnlyWithTheLowestSample) {
    for (int i = 0; i < 3000; i++) {
        samples v = any<int16_t>(rng() % 300);
        i64 sum = 0, peak = -1;
        for (int16_t& x : v) {
            x = static_cast<int16_t>(x >> i % 16);
            if (x != -32768) peak = std::max(peak, std::abs(i64{x}));
        }
        int32_t scale = -1;
        const int32_t energy = TarvikSpl_Energy(v.data(), v.size(), &scale);
        for (i64 x : v) sum += (x * x) >> scale;
        ASSERT_EQ(energy, w32(sum));
        ASSERT_TRUE(energy == sum || std::count(v.begin(), v.end(), -32768) > 0) << v.size();
        // Bits of the count, less the headroom of the peak's square below 2^31.
        const double bits = v.empty() ? 0 : std::floor(std::log2(v.size())) + 1;
        const double headroom = 30 - std::floor(2 * std::log2(std::abs(static_cast<double>(peak))) + 1e-9);
        ASSERT_EQ(scale, peak == 0 ? 0 : std::max(0.0, bits - headroom)) << v.size() << ' ' << peak;
    }
    EXPECT_EQ(TarvikSpl_GetScalingSquare(samples(9, 32767).data(), 9, 240), 7);
    EXPECT_EQ(TarvikSpl_GetScalingSquare(samples(9, -32768).data(), 9, 1 << 30), 1);
    EXPECT_EQ(TarvikSpl_GetScalingSquare(samples(9, 32767).data(), 9, -1), 31);
}

TEST(LeadingZeros, TableHoldsItsValues) {
    uint32_t hash = 0;
    for (uint32_t v : kTarvikSpl_CountLeadingZeros32_Table) hash = hash * 31 + v;
    EXPECT_EQ(hash, 2284520181u);
}

TEST(HalfBand, AgreesWithModelsOnAnyInputAndState) {
    for (int i = 0; i < 400; i++) {
        const size_t len = i < 6 ? static_cast<size_t>(i) : rng() % 200, even = len & ~size_t{1};
        const samples in16 = any<int16_t>(len);
        words state = any<int32_t>(16), expected_state = state, in32 = any<int32_t>(len), out(len / 2),
              smooth(even);
        samples out16(len / 2);

        TarvikSpl_DownBy2ShortToInt(in16.data(), static_cast<int32_t>(len), out.data(), state.data());
        ASSERT_EQ(out, by_2(widened(in16), expected_state.data()));
        const samples expected = narrowed(by_2(in32, expected_state.data()));
        TarvikSpl_DownBy2IntToShort(in32.data(), static_cast<int32_t>(len), out16.data(), state.data());
        ASSERT_EQ(out16, expected);
        in32 = any<int32_t>(even);
        TarvikSpl_LPBy2IntToInt(in32.data(), static_cast<int32_t>(even), smooth.data(), state.data());
        ASSERT_EQ(smooth, low_pass(in32, expected_state.data()));
        ASSERT_EQ(state, expected_state);
    }
}

TEST(Rate48To8, AgreesWithModelsAndCarriesItsState) {
    words state = any<int32_t>(40);
    TarvikSpl_ResetResample48khzTo8khz(state.data());
    EXPECT_EQ(state, words(40, 0));
    for (int i = 0; i < 200; i++) {
        if (i % 20 == 10) state = any<int32_t>(40);
        const samples block = i % 3 == 0 ? samples(480, i % 2 == 0 ? 32767 : -32768) : any<int16_t>(480);
        words expected_state = state, scratch = any<int32_t>(496);
        samples at_8k(80);
        TarvikSpl_Resample48khzTo8khz(block.data(), at_8k.data(), state.data(), scratch.data());
        ASSERT_EQ(at_8k, to_8k(block, expected_state.data())) << i;
        ASSERT_EQ(state, expected_state) << i;
    }
    const words in = any<int32_t>(3 * 50 + 6);
    words out(100);
    TarvikSpl_Resample48khzTo32khz(in.data(), out.data(), 50);
    EXPECT_EQ(out, three_to_two(in, 50));
}

TEST(Rate48To8, PassesSpeechAndRejectsAliases) {
    for (int f : {100, 300, 1000, 2000, 3000, 5000, 6000, 7000, 9000, 15000, 19000, 23000}) {
        words state(40, 0), scratch(496);
        samples in(480), out(80);
        double power = 0;
        for (int i = 0; i < 20 * 480; i++) {
            in[static_cast<size_t>(i % 480)] =
                static_cast<int16_t>(16384 * std::sin(2 * M_PI * f * i / 48000));
            if (i % 480 == 479)
                TarvikSpl_Resample48khzTo8khz(in.data(), out.data(), state.data(), scratch.data());
            for (double y : out) power += i % 480 == 479 && i > 5 * 480 ? y * y / (15 * 80) : 0;
        }
        const double level_db = 10 * std::log10(power / (16384.0 * 16384 / 2) + 1e-12);
        EXPECT_TRUE(f < 4000 ? std::abs(level_db) < 0.1 : level_db < -40)
            << f << " Hz: " << level_db << " dB";
    }
}
