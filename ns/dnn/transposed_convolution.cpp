#include "blocks.h"
#include "vq_ns_kernels.h"

namespace {

void add_bias(const float* bias, float* out, int32_t bins, int32_t ch) {
    for (int32_t f = 0; f < bins; ++f) {
        for (int32_t o = 0; o < ch; ++o) out[f * ch + o] += bias[o];
    }
}

void convolve_transposed(const float* in, const float* w, const float* bias, float* out, int32_t ch_in,
                         int32_t ch_out, int32_t bins_in, int32_t bins_out, int32_t times, int32_t taps) {
    for (int32_t t = 0; t < times; ++t) {
        float* frame = out + t * bins_out * ch_out;
        for (int32_t k = 0; k < taps; ++k) {
            for (int32_t o = 0; o < ch_out; o += 8, w += ch_in * 8) {
                add_product(frame + k * ch_out + o, 2 * ch_out, in, ch_in, bins_in, w, ch_in);
            }
        }
    }
    add_bias(bias, out, bins_out, ch_out);
}

float dot(const float* a, const float* b, int32_t n) {
    Block partial = {};
    int32_t i = 0;
    for (; i + 8 <= n; i += 8) {
        for (int u = 0; u < 8; ++u) partial.lane[u] += a[i + u] * b[i + u];
    }
    float sum = 0.0f;
    for (const float lane : partial.lane) sum += lane;
    for (; i < n; ++i) sum += a[i] * b[i];
    return sum;
}

}  // namespace

void vq_ns_l6(const float* in, const float* w, const float* bias, float* out, int16_t ch_in, int16_t ch_out,
              int16_t bins_in, int16_t bins_out) {
    convolve_transposed(in, w, bias, out, ch_in, ch_out, bins_in, bins_out, 1, 3);
}

void vq_ns_l7(const float* in, const float* w, const float* bias, float* out, int16_t ch_in, int16_t ch_out,
              int16_t bins_in, int16_t bins_out) {
    convolve_transposed(in, w, bias, out, ch_in, ch_out, bins_in, bins_out, 2, 3);
}

void vq_ns_l8(const float* in, const float* w, const float* bias, float* out, int16_t ch_in, int16_t ch_out,
              int16_t bins_in, int16_t bins_out) {
    enum { kTimes = 2, kTaps = 5 };
    for (int32_t t = 0; t < kTimes; ++t) {
        float* frame = out + t * bins_out * ch_out;
        for (int32_t k = 0; k < kTaps; ++k) {
            for (int32_t o = 0; o < ch_out; ++o, w += ch_in) {
                for (int32_t f = 0; f < bins_in; ++f)
                    frame[(2 * f + k) * ch_out + o] += dot(in + f * ch_in, w, ch_in);
            }
        }
    }
    add_bias(bias, out, bins_out, ch_out);
}
