#include <algorithm>
#include <bit>

#include "signal_processing_library.h"
#include "spl_wrap.h"

int16_t TarvikSpl_GetScalingSquare(const int16_t* v, size_t n, int32_t times) {
    // The magnitude stays in 16 bits, where that of -32768 is negative and never the largest.
    int16_t peak = -1;
    for (size_t i = 0; i < n; i++) peak = std::max(peak, low16(v[i] < 0 ? -v[i] : v[i]));
    if (peak == 0) return 0;

    const int bits = 32 - std::countl_zero(static_cast<uint32_t>(times));
    const int headroom = std::countl_zero(static_cast<uint32_t>(peak * peak)) - 1;
    return static_cast<int16_t>(headroom > bits ? 0 : bits - headroom);
}

int32_t TarvikSpl_Energy(const int16_t* v, size_t n, int32_t* scale) {
    const int shift = TarvikSpl_GetScalingSquare(v, n, static_cast<int32_t>(n));
    int32_t energy = 0;
    for (size_t i = 0; i < n; i++) energy = wrap_add(energy, (v[i] * v[i]) >> (shift & 31));
    *scale = shift;
    return energy;
}
