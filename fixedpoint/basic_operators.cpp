#include "basic_operators.h"

#include <bit>

int16_t CarryBit = 0;
int16_t OverflowBit = 0;

namespace {

constexpr int16_t MAX_16 = INT16_MAX;
constexpr int16_t MIN_16 = INT16_MIN;
constexpr int32_t MAX_32 = INT32_MAX;
constexpr int32_t MIN_32 = INT32_MIN;

int32_t wrapping_add(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

int32_t wrapping_sub(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

int32_t wrapping_double(int32_t a) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) << 1);
}

int16_t opposite(int16_t n) {
    return static_cast<int16_t>(-n);
}

}  // namespace

int16_t rk_abs(int16_t a) {
    return a < 0 ? rk_negate(a) : a;
}

int16_t rk_negate(int16_t a) {
    return a == MIN_16 ? MAX_16 : static_cast<int16_t>(-a);
}

int16_t rk_saturate(int32_t L) {
    if (L > MAX_16) {
        OverflowBit = 1;
        return MAX_16;
    }
    if (L < MIN_16) {
        OverflowBit = 1;
        return MIN_16;
    }
    OverflowBit = 0;
    return static_cast<int16_t>(L);
}

int16_t rk_add(int16_t a, int16_t b) {
    return rk_saturate(a + b);
}

int16_t rk_sub(int16_t a, int16_t b) {
    return rk_saturate(a - b);
}

int16_t rk_mult(int16_t a, int16_t b) {
    return rk_saturate((a * b) >> 15);
}

int16_t rk_mult_r(int16_t a, int16_t b) {
    return rk_saturate((a * b + 0x4000) >> 15);
}

int32_t rk_L_negate(int32_t L) {
    return L == MIN_32 ? MAX_32 : -L;
}

int32_t rk_L_abs(int32_t L) {
    return L < 0 ? rk_L_negate(L) : L;
}

int32_t rk_L_add(int32_t L1, int32_t L2) {
    const int32_t sum = wrapping_add(L1, L2);
    if ((L1 ^ L2) >= 0 && (sum ^ L1) < 0) {
        OverflowBit = 1;
        return L1 < 0 ? MIN_32 : MAX_32;
    }
    return sum;
}

int32_t rk_L_sub(int32_t L1, int32_t L2) {
    const int32_t difference = wrapping_sub(L1, L2);
    if ((L1 ^ L2) < 0 && (difference ^ L1) < 0) {
        OverflowBit = 1;
        return L1 < 0 ? MIN_32 : MAX_32;
    }
    return difference;
}

int32_t rk_L_mult(int16_t a, int16_t b) {
    const int32_t product = a * b;
    if (product == 0x40000000) {
        OverflowBit = 1;
        return MAX_32;
    }
    return product * 2;
}

int32_t rk_L_mac(int32_t L, int16_t a, int16_t b) {
    return rk_L_add(L, rk_L_mult(a, b));
}

int32_t rk_L_msu(int32_t L, int16_t a, int16_t b) {
    return rk_L_sub(L, rk_L_mult(a, b));
}

int16_t rk_round(int32_t L) {
    return rk_extract_h(rk_L_add(L, 0x8000));
}

int16_t rk_mac_r(int32_t L, int16_t a, int16_t b) {
    return rk_round(rk_L_mac(L, a, b));
}

int16_t rk_msu_r(int32_t L, int16_t a, int16_t b) {
    return rk_round(rk_L_msu(L, a, b));
}

int32_t rk_L_sat(int32_t L) {
    if (!OverflowBit) return L;
    const int32_t limit = CarryBit ? MIN_32 : MAX_32;
    OverflowBit = 0;
    CarryBit = 0;
    return limit;
}

int32_t rk_L_add_c(int32_t L1, int32_t L2) {
    const bool carry_in = CarryBit != 0;
    const int32_t sum = wrapping_add(L1, L2);
    const bool wrapped_up = L1 > 0 && L2 > 0 && sum < 0;
    const bool wrapped_down = L1 < 0 && L2 < 0 && sum > 0;
    const bool crossed = (L1 ^ L2) < 0 && sum > 0;

    OverflowBit = wrapped_up || wrapped_down;
    CarryBit = wrapped_down || crossed;
    if (!carry_in) return sum;

    // The carry itself can push the sum over the end of the range or through zero.
    if (sum == MAX_32) OverflowBit = 1;
    if (sum == -1) CarryBit = 1;
    return wrapping_add(sum, 1);
}

int32_t rk_L_sub_c(int32_t L1, int32_t L2) {
    const int32_t difference = wrapping_sub(L1, L2);
    if (CarryBit) {
        CarryBit = 0;
        if (L2 != MIN_32) return rk_L_add_c(L1, -L2);
        if (L1 > 0) OverflowBit = 1;
        return difference;
    }

    if (difference < 0 && L1 > 0 && L2 < 0) {
        OverflowBit = 1;
    } else if (difference > 0 && L1 < 0 && L2 > 0) {
        OverflowBit = 1;
        CarryBit = 1;
    } else if (difference > 0 && (L1 ^ L2) > 0) {
        OverflowBit = 0;
        CarryBit = 1;
    }
    if (difference == MIN_32) OverflowBit = 1;
    return wrapping_sub(difference, 1);
}

int16_t rk_extract_h(int32_t L) {
    return static_cast<int16_t>(L >> 16);
}

int16_t rk_extract_l(int32_t L) {
    return static_cast<int16_t>(L);
}

int32_t rk_L_deposit_h(int16_t a) {
    return a * 0x10000;
}

int32_t rk_L_deposit_l(int16_t a) {
    return a;
}

int16_t rk_shl(int16_t a, int16_t n) {
    if (n < 0) return rk_shr(a, opposite(n));
    if (a == 0) return 0;
    if (n <= 15) {
        const int32_t shifted = a * (1 << n);
        if (shifted == static_cast<int16_t>(shifted)) return static_cast<int16_t>(shifted);
    }
    OverflowBit = 1;
    return a > 0 ? MAX_16 : MIN_16;
}

int16_t rk_shr(int16_t a, int16_t n) {
    if (n < 0) return rk_shl(a, opposite(n));
    return static_cast<int16_t>(a >> (n < 15 ? n : 15));
}

int32_t rk_L_shl(int32_t L, int16_t n) {
    if (n <= 0) return rk_L_shr(L, opposite(n));
    if (L == 0) return 0;
    const int16_t headroom = rk_L_norm(L);
    if (n <= headroom) return static_cast<int32_t>(static_cast<uint32_t>(L) << n);
    OverflowBit = 1;
    return L > 0 ? MAX_32 : MIN_32;
}

int32_t rk_L_shr(int32_t L, int16_t n) {
    if (n < 0) return rk_L_shl(L, opposite(n));
    return L >> (n < 31 ? n : 31);
}

int16_t rk_shr_r(int16_t a, int16_t n) {
    if (n > 15) return 0;
    const int16_t shifted = rk_shr(a, n);
    const bool half = n > 0 && ((a >> (n - 1)) & 1);
    return static_cast<int16_t>(shifted + half);
}

int32_t rk_L_shr_r(int32_t L, int16_t n) {
    if (n > 31) return 0;
    const int32_t shifted = rk_L_shr(L, n);
    const bool half = n > 0 && ((L >> (n - 1)) & 1);
    return shifted + half;
}

int16_t rk_norm(int16_t a) {
    if (a == 0) return 0;
    return static_cast<int16_t>(std::countl_zero(static_cast<uint16_t>(a < 0 ? ~a : a)) - 1);
}

int16_t rk_L_norm(int32_t L) {
    if (L == 0) return 0;
    return static_cast<int16_t>(std::countl_zero(static_cast<uint32_t>(L < 0 ? ~L : L)) - 1);
}

int16_t rk_div(int16_t num, int16_t den) {
    if (num == 0) return 0;
    if (num == den) return MAX_16;
    int32_t remainder = num;
    int16_t quotient = 0;
    for (int step = 0; step < 15; ++step) {
        quotient = static_cast<int16_t>(quotient * 2);
        remainder = wrapping_double(remainder);
        if (remainder >= den) {
            remainder = rk_L_sub(remainder, den);
            quotient = rk_add(quotient, 1);
        }
    }
    return quotient;
}

int16_t rk_div_l(int32_t num, int16_t den) {
    int32_t divisor = rk_L_deposit_h(den);
    if (num >= divisor) return MAX_16;
    int32_t remainder = num >> 1;
    divisor >>= 1;
    int16_t quotient = 0;
    for (int step = 0; step < 15; ++step) {
        quotient = static_cast<int16_t>(quotient * 2);
        remainder = wrapping_double(remainder);
        if (remainder >= divisor) {
            remainder = wrapping_sub(remainder, divisor);
            ++quotient;
        }
    }
    return quotient;
}

void rk_Extract(int32_t L, int16_t* hi, int16_t* lo) {
    *hi = rk_extract_h(L);
    *lo = static_cast<int16_t>((L >> 1) & 0x7FFF);
}

int32_t rk_Comp(int16_t hi, int16_t lo) {
    return rk_L_mac(rk_L_deposit_h(hi), lo, 1);
}

int32_t rk_mls(int32_t L, int16_t v) {
    return rk_L_mac(((L & 0xFFFF) * v) >> 15, v, rk_extract_h(L));
}

int32_t rk_L_mls(int32_t L, int16_t v) {
    return rk_L_mac(rk_L_shr((L & 0xFFFF) * v, 15), v, rk_extract_h(L));
}

int32_t rk_Mpy_32(int16_t hi1, int16_t lo1, int16_t hi2, int16_t lo2) {
    const int32_t cross = ((hi1 * lo2) >> 15) + ((lo1 * hi2) >> 15);
    return wrapping_double(hi1 * hi2 + cross);
}

int32_t rk_Mpy_32_16(int16_t hi, int16_t lo, int16_t n) {
    return wrapping_double(hi * n + ((lo * n) >> 15));
}

int32_t rk_Div_32(int32_t num, int16_t den_hi, int16_t den_lo) {
    constexpr int16_t half_q15 = 0x3FFF;
    const int16_t estimate = rk_div(half_q15, den_hi);

    // One Newton step, 1/d = e (2 - d e), leaves the reciprocal in Q29.
    int16_t hi = 0;
    int16_t lo = 0;
    rk_Extract(rk_L_sub(MAX_32, rk_Mpy_32_16(den_hi, den_lo, estimate)), &hi, &lo);
    rk_Extract(rk_Mpy_32_16(hi, lo, estimate), &hi, &lo);

    int16_t num_hi = 0;
    int16_t num_lo = 0;
    rk_Extract(num, &num_hi, &num_lo);
    return rk_L_shl(rk_Mpy_32(num_hi, num_lo, hi, lo), 2);
}
