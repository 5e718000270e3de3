#include "gain_apply.h"

#include <algorithm>

void rk_dsp_dgc_kwenh_apply(int16_t* samples, int32_t count, int32_t gain) {
    for (int32_t i = 0; i < count; ++i) {
        const uint32_t product = static_cast<uint32_t>(int32_t{samples[i]}) * static_cast<uint32_t>(gain);
        const int32_t scaled = static_cast<int32_t>(product) >> 15;
        samples[i] = static_cast<int16_t>(std::clamp(scaled, -32767, 32767));
    }
}
