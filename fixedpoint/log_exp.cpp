#include "log_exp.h"

namespace {

uint32_t magnitude(int32_t x) {
    return x < 0 ? 0U - static_cast<uint32_t>(x) : static_cast<uint32_t>(x);
}

}  // namespace

int32_t fixedpoint_init() {
    static int initialized = 0;
    if (initialized) return 0;
    uint8_t length = 0;
    for (int32_t v = 0; v < 65536; ++v) {
        while (length < 16 && exptable[length] <= v) ++length;
        logtable[v] = length;
    }
    initialized = 1;
    return 0;
}

uint8_t log2plus1(uint16_t v) {
    return logtable[v];
}

uint8_t rk_log2(uint16_t v) {
    return logtable[v >> 1];
}

int32_t norm(int32_t x) {
    const uint32_t a = magnitude(x);
    const int32_t upper = log2plus1(static_cast<uint16_t>(a >> 16));
    if (upper != 0) return 15 - upper;
    return 31 - log2plus1(static_cast<uint16_t>(a));
}

int32_t logn(int32_t x) {
    if (x <= 0) return INT32_MIN;
    constexpr int32_t ln2 = 22713;
    const int32_t n = norm(x);
    const int32_t m = ((x << n) >> 15) - 32768;

    int32_t sum = 0;
    int32_t power = m;
    for (const int32_t coefficient : logncoefftable) {
        sum += coefficient * power;
        power = (power * m) >> 15;
    }
    return (sum >> 15) + (15 - n) * ln2;
}

int32_t rk_exponent(int32_t x) {
    if (x == 0) return 32768;
    const uint32_t a = magnitude(x);
    uint32_t i = a >> 15;
    int32_t f = static_cast<int32_t>(a & 0x7FFF);
    if (f & 0x4000) {
        f -= 32768;
        ++i;
    }
    // Before the sign is looked at: far below zero the result is the largest integer too.
    if (i > 11) return INT32_MAX;

    int32_t sum = 0;
    int32_t power = f;
    for (int k = 1; k <= 8; ++k) {
        sum += expcoefftable[k] * power;
        power = (power * f) >> 15;
    }
    const int32_t e = expcoefftable[0] + (sum >> 15);

    const int32_t fraction = (fractionexptable[i] * e) >> 15;
    const int32_t r =
        static_cast<int32_t>(static_cast<uint32_t>(fraction) +
                             static_cast<uint32_t>(e) * static_cast<uint32_t>(integerexptable[i]));
    // e lies in 0.6 to 1.65, so r cannot be 0 even where it wraps.
    return x > 0 ? r : (INT32_MAX / r) >> 1;
}
