// The basic operators against exact 64-bit arithmetic, flags included; the logarithm and the exponential
// against their polynomials in 64 bits and against the C library.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <random>
#include <utility>
#include <vector>

#include "basic_operators.h"
#include "log_exp.h"

namespace {

using Wide = int64_t;

const bool table_zero_at_load = std::all_of(logtable, logtable + 65536, [](uint8_t v) { return v == 0; });

// The model: exact values, limited where an operator saturates, with flags of its own.
bool overflow;
bool carry;

const auto limit = [](Wide v, Wide bits) {
    const Wide most = (Wide{1} << (bits - 1)) - 1;
    overflow |= v > most || v < -most - 1;
    return std::clamp(v, -most - 1, most);
};
const auto sat32 = [](Wide v) { return limit(v, 32); };
const auto sat16 = [](Wide v) { return overflow = false, limit(v, 16); };
const auto wrap = [](Wide v) { return Wide{static_cast<int32_t>(v & 0xFFFFFFFF)}; };
const auto scaled = [](Wide v, Wide n) { return v >> std::min(n, Wide{62}); };  // floor(v / 2^n)
const auto high = [](Wide v) { return scaled(v, 16); };
const auto low = [](Wide v) { return scaled(v - high(v) * 65536, 1); };
const auto left = [](Wide v, Wide n, Wide bits) {  // v 2^n, n of either sign
    return n < 0 ? scaled(v, -n) : limit(v * (Wide{1} << std::min(n, Wide{32})), bits);
};
const auto right_rounded = [](Wide v, Wide n, Wide bits) {
    return n >= bits ? 0 : n > 0 ? scaled(v + (Wide{1} << (n - 1)), n) : left(v, -n, bits);
};
const auto doublings = [](Wide v, Wide bits) {  // that stay in range
    Wide n = 0;
    for (Wide end = Wide{1} << (bits - 1); v != 0 && 2 * v >= -end && 2 * v < end; v *= 2) ++n;
    return n;
};
Wide add_c(Wide a, Wide b) {
    const Wide exact = a + b;
    const bool carry_in = carry;
    const bool below = exact < INT32_MIN && wrap(exact) != 0;
    overflow = exact > INT32_MAX || below || (carry_in && exact == INT32_MAX);
    carry = below || ((a < 0) != (b < 0) && exact > 0) || (carry_in && exact == -1);
    return wrap(exact + carry_in);
}
Wide sub_c(Wide a, Wide b) {
    const Wide exact = a - b;
    if (std::exchange(carry, false)) {
        if (b != INT32_MIN) return add_c(a, -b);
        overflow |= a > 0;
        return wrap(exact);
    }
    const bool above_zero = (a < 0) == (b < 0) && exact > 0;
    overflow &= !above_zero;
    overflow |= (exact > INT32_MAX && a > 0) || exact < INT32_MIN || wrap(exact) == INT32_MIN;
    carry = exact < INT32_MIN || above_zero;
    return wrap(exact - 1);
}
Wide saturated(Wide v) {
    if (!std::exchange(overflow, false)) return v;
    return std::exchange(carry, false) ? Wide{INT32_MIN} : Wide{INT32_MAX};
}
// The 15 steps in closed form: a remainder that has left [0, den) never comes back.
Wide div(Wide num, Wide den) {
    Wide quotient = num > 0 || (den < 0 && 2 * num >= den) ? 32767 : 0;
    if (num == 0 || num == den) return num == 0 ? 0 : 32767;
    if (num > 0 && num < den) quotient = num * 32768 / den;
    overflow &= quotient == 0;
    return quotient;
}
Wide div_l(Wide num, Wide den) {
    if (num >= den * 65536) return 32767;
    if (num >= 0) return (num >> 1) / den;
    Wide rest = num >> 1;  // below zero the doubling wraps
    Wide quotient = 0;
    for (int step = 0; step < 15; ++step) {
        const bool bit = wrap(2 * rest) >= den * 32768;
        rest = wrap(2 * rest - bit * den * 32768);
        quotient = 2 * quotient + bit;
    }
    return quotient;
}
Wide mls(Wide v, Wide w) {
    const bool both_lowest = w == -32768 && high(v) == -32768;  // saturates before the low half is added
    overflow |= both_lowest;
    return scaled(v * w, 15) - both_lowest;
}
Wide mpy_32(Wide hi1, Wide lo1, Wide hi2, Wide lo2) {
    return wrap(2 * (hi1 * hi2 + scaled(hi1 * lo2, 15) + scaled(lo1 * hi2, 15)));
}
Wide div_32(Wide num, Wide hi, Wide lo) {
    const Wide estimate = div(0x3FFF, hi);
    const Wide two_minus = sat32(INT32_MAX - mpy_32(hi, lo, estimate, 0));
    const Wide reciprocal = mpy_32(high(two_minus), low(two_minus), estimate, 0);
    return left(mpy_32(high(num), low(num), high(reciprocal), low(reciprocal)), 2, 32);
}

// The ends, the places where a rule changes, and random values of every magnitude.
template <class Word>
std::vector<Word> words(size_t random_count) {
    constexpr unsigned bits = 8 * sizeof(Word);
    std::vector<Word> values = {5,           -5, Word(0x7FFF8000), Word(0xFFFF), Word(0x10000), Word(0x7FFF),
                                Word(-32768)};
    for (const Wide centre :
         {Wide{0}, Wide{1} << (bits - 1), Wide{1} << (bits - 2), -(Wide{1} << (bits - 2))}) {
        for (Wide off = -2; off <= 2; ++off) values.push_back(static_cast<Word>(centre + off));
    }
    std::mt19937 random(41);
    while (random_count-- > 0) values.push_back(Word(static_cast<Word>(random()) >> (random() % bits)));
    return values;
}
const std::vector<int16_t> W = words<int16_t>(40);
const std::vector<int32_t> L = words<int32_t>(60);
const std::vector<int16_t> N = [] {
    std::vector<int16_t> counts = {-32767, -1000, 1000, 32767};
    for (int16_t n = -40; n <= 40; ++n) counts.push_back(n);
    return counts;
}();

// Compares value and flags for every combination of values from the sets, from all four states of the flags;
// stops at the first disagreement.
std::vector<Wide> arguments;

bool agree(auto op, auto model) {
    for (const int flags : {0, 1, 2, 3}) {
        OverflowBit = overflow = flags & 1;
        CarryBit = carry = flags >> 1;
        const std::array<Wide, 3> got = {op(), OverflowBit, CarryBit};
        const std::array<Wide, 3> expected = {model(), overflow, carry};
        if (got == expected) continue;
        EXPECT_EQ(got, expected) << "arguments " << testing::PrintToString(arguments) << ", flags " << flags;
        return false;
    }
    return true;
}
bool agree(auto op, auto model, const auto& set, const auto&... sets) {
    return std::all_of(set.begin(), set.end(), [&](auto v) {
        arguments.push_back(v);
        const bool same = agree([&](auto... in) -> Wide { return op(v, in...); },
                                [&](auto... in) -> Wide { return model(v, in...); }, sets...);
        arguments.pop_back();
        return same;
    });
}
#define AGREE(op, expression, ...)                                                                       \
    EXPECT_TRUE(agree(                                                                                   \
        op, [](Wide a, [[maybe_unused]] Wide b = 0, [[maybe_unused]] Wide c = 0) { return expression; }, \
        __VA_ARGS__))                                                                                    \
        << #op

TEST(BasicOperators, OneOperand) {
    AGREE(rk_abs, std::min(std::abs(a), Wide{32767}), W);
    AGREE(rk_negate, std::min(-a, Wide{32767}), W);
    AGREE(rk_L_negate, std::min(-a, Wide{INT32_MAX}), L);
    AGREE(rk_L_abs, std::min(std::abs(a), Wide{INT32_MAX}), L);
    AGREE(rk_saturate, sat16(a), L);
    AGREE(rk_extract_h, high(a), L);
    AGREE(rk_extract_l, wrap(a * 65536) / 65536, L);
    AGREE(rk_L_deposit_h, a * 65536, W);
    AGREE(rk_L_deposit_l, a, W);
    AGREE(rk_round, high(sat32(a + 32768)), L);
    AGREE(rk_norm, doublings(a, 16), W);
    AGREE(rk_L_norm, doublings(a, 32), L);
    int16_t hi = 0;
    int16_t lo = 0;
    const auto halves = [&](int32_t v) { return rk_Extract(v, &hi, &lo), hi * Wide{32768} + lo; };
    AGREE(halves, high(a) * 32768 + low(a), L);
    AGREE(rk_L_sat, saturated(a), L);
}

TEST(BasicOperators, SumsAndProducts) {
    AGREE(rk_add, sat16(a + b), W, W);
    AGREE(rk_sub, sat16(a - b), W, W);
    AGREE(rk_mult, sat16(scaled(a * b, 15)), W, W);
    AGREE(rk_mult_r, sat16(scaled(a * b + 16384, 15)), W, W);
    AGREE(rk_L_mult, sat32(2 * a * b), W, W);
    AGREE(rk_L_add, sat32(a + b), L, L);
    AGREE(rk_L_sub, sat32(a - b), L, L);
    AGREE(rk_L_add_c, add_c(a, b), L, L);
    AGREE(rk_L_sub_c, sub_c(a, b), L, L);
    AGREE(rk_L_mac, sat32(a + sat32(2 * b * c)), L, W, W);
    AGREE(rk_L_msu, sat32(a - sat32(2 * b * c)), L, W, W);
    AGREE(rk_mac_r, high(sat32(sat32(a + sat32(2 * b * c)) + 32768)), L, W, W);
    AGREE(rk_msu_r, high(sat32(sat32(a - sat32(2 * b * c)) + 32768)), L, W, W);
}

TEST(BasicOperators, Shifts) {
    AGREE(rk_shl, left(a, b, 16), W, N);
    AGREE(rk_shr, left(a, -b, 16), W, N);
    AGREE(rk_L_shl, left(a, b, 32), L, N);
    AGREE(rk_L_shr, left(a, -b, 32), L, N);
    AGREE(rk_shr_r, right_rounded(a, b, 16), W, N);
    AGREE(rk_L_shr_r, right_rounded(a, b, 32), L, N);
}

TEST(BasicOperators, DoublePrecisionAndDivision) {
    AGREE(rk_mls, mls(a, b), L, W);
    AGREE(rk_L_mls, mls(a, b), L, W);
    AGREE(rk_Comp, sat32(a * 65536 + b * 2), W, W);
    AGREE(rk_div, div(a, b), W, W);
    AGREE(rk_div_l, div_l(a, b), L, W);
    AGREE(rk_Mpy_32_16, mpy_32(a, b, c, 0), W, W, W);
    AGREE(rk_Div_32, div_32(a, b, c), L, W, W);
    const std::vector<int16_t> few = words<int16_t>(10);
    EXPECT_TRUE(agree(rk_Mpy_32, mpy_32, few, few, few, few));

    // What the long division is for: a normalised denominator and a smaller numerator.
    std::mt19937 random(7);
    for (int i = 0; i < 100000; ++i) {
        const auto den = static_cast<int32_t>(0x40000000 | (random() & 0x3FFFFFFE));
        const auto num = static_cast<int32_t>(random() % static_cast<uint32_t>(den));
        const double got = rk_Div_32(num, rk_extract_h(den), static_cast<int16_t>(low(den)));
        ASSERT_NEAR(got / 0x1p31, static_cast<double>(num) / den, 0x1p-25) << num << " / " << den;
    }
}

Wide polynomial(Wide x, std::initializer_list<Wide> coefficients) {  // without the constant term, Q15
    Wide sum = 0;
    Wide power = 32768;
    for (const Wide c : coefficients) sum += c * (power = scaled(power * x, 15));
    return scaled(sum, 15);
}

TEST(LogExp, TableIsBuiltOnce) {
    EXPECT_TRUE(table_zero_at_load);
    fixedpoint_init();
    for (uint32_t v = 0; v < 65536; ++v) {
        const auto length = static_cast<int>(std::bit_width(v));
        ASSERT_EQ(log2plus1(static_cast<uint16_t>(v)), length);
        ASSERT_EQ(rk_log2(static_cast<uint16_t>(v)), v < 2 ? 0 : length - 1);
    }
    logtable[5] = 99;
    fixedpoint_init();
    EXPECT_EQ(std::exchange(logtable[5], uint8_t{3}), 99);
}

TEST(LogExp, NormAndLogarithm) {
    fixedpoint_init();
    for (const int32_t x : words<int32_t>(20000)) {
        const auto length = static_cast<int>(std::bit_width(static_cast<uint64_t>(std::abs(Wide{x}))));
        ASSERT_EQ(norm(x), 31 - length) << x;
        if (x <= 0) {
            ASSERT_EQ(logn(x), INT32_MIN) << x;
            continue;
        }
        const Wide m = scaled(Wide{x} << (31 - length), 15) - 32768;
        ASSERT_EQ(logn(x), polynomial(m, {32739, -16055, 9361, -4360, 1028}) + (length - 16) * 22713) << x;
        ASSERT_NEAR(logn(x), 32768 * std::log(x / 32768.0), 4) << x;
    }
}

TEST(LogExp, Exponential) {
    std::mt19937 random(3);
    std::vector<int32_t> inputs = {0,      1,       -1,      16383,    16384,    376831,
                                   376832, -376831, -376832, 12 << 15, INT32_MIN};
    while (inputs.size() < 50000) inputs.push_back(static_cast<int32_t>(random() % 800000) - 400000);
    for (const int32_t x : inputs) {
        const Wide magnitude = std::abs(Wide{x});
        const Wide whole = scaled(magnitude + 16384, 15);
        if (whole > 11) {
            ASSERT_EQ(rk_exponent(x), INT32_MAX) << x;
            continue;
        }
        const double exact = std::exp(static_cast<double>(whole));
        const Wide e =
            32768 + polynomial(magnitude - whole * 32768, {32768, 16384, 5461, 1365, 273, 46, 7, 1});
        const Wide fraction = std::lround((exact - std::floor(exact)) * 32768);
        const Wide power = wrap(scaled(fraction * e, 15) + e * static_cast<Wide>(exact));
        ASSERT_EQ(rk_exponent(x), x < 0 ? scaled(INT32_MAX / power, 1) : x == 0 ? 32768 : power) << x;
        if (magnitude > 11 << 15) continue;  // the value or its reciprocal is about to wrap
        const double truth = 32768 * std::exp(x / 32768.0);
        ASSERT_NEAR(rk_exponent(x), truth, 1 + 1e-4 * truth) << x;
    }
}

}  // namespace
