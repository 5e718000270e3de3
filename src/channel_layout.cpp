#include "channel_layout.h"

void rk_dsp_stereo_to_mono(int16_t* dst, const int16_t* src, int16_t count) {
    const int32_t left_only = count / 4 * 4;
    for (int32_t i = 0; i < left_only; ++i) dst[i] = src[2 * i];
    for (int32_t i = left_only; i < count; ++i)
        dst[i] = static_cast<int16_t>((src[2 * i] + src[2 * i + 1]) >> 1);
}

void rk_dsp_mono_to_stereo(int16_t* dst, const int16_t* src, int16_t count) {
    for (int32_t i = 0; i < count; ++i) dst[2 * i] = dst[2 * i + 1] = src[i];
}

void rk_dsp_stereo_split(int16_t* left, int16_t* right, const int16_t* interleaved, int16_t frames) {
    for (int32_t i = 0; i < frames; ++i) {
        left[i] = interleaved[2 * i];
        right[i] = interleaved[2 * i + 1];
    }
}

void rk_dsp_stereo_mux(int16_t* interleaved, const int16_t* left, const int16_t* right, int16_t frames) {
    for (int32_t i = 0; i < frames; ++i) {
        interleaved[2 * i] = left[i];
        interleaved[2 * i + 1] = right[i];
    }
}
