#include "blocks.h"
#include "vq_ns_kernels.h"

namespace {

/* Frequency taps and channels of one output bin lie side by side in a frame, and so do their weights: a
 * convolution is one product of `taps * ch_in` inputs a time tap. */
void convolve(const float* in, const float* w, const float* bias, float* out, int32_t ch_in, int32_t ch_out,
              int32_t bins_in, int32_t bins_out, int32_t times, int32_t taps) {
    const int32_t run = taps * ch_in;
    for (int32_t o = 0; o < ch_out; o += 8) {
        fill_rows(out + o, ch_out, bins_out, bias + o);
        for (int32_t t = 0; t < times; ++t, w += run * 8) {
            add_product(out + o, ch_out, in + t * bins_in * ch_in, 2 * ch_in, bins_out, w, run);
        }
    }
}

}  // namespace

void vq_ns_l1(const float* in, const float* w, const float* bias, float* out, int16_t ch_in, int16_t ch_out,
              int16_t bins_in, int16_t bins_out) {
    convolve(in, w, bias, out, ch_in, ch_out, bins_in, bins_out, 2, 5);
}

void vq_ns_l2(const float* in, const float* w, const float* bias, float* out, int16_t ch_in, int16_t ch_out,
              int16_t bins_in, int16_t bins_out) {
    convolve(in, w, bias, out, ch_in, ch_out, bins_in, bins_out, 2, 3);
}

void vq_ns_l3(const float* in, const float* w, const float* bias, float* out, int16_t ch_in, int16_t ch_out,
              int16_t bins_in, int16_t bins_out) {
    convolve(in, w, bias, out, ch_in, ch_out, bins_in, bins_out, 1, 3);
}
