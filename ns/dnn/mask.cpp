#include "vq_ns_kernels.h"

void vq_ns_l9(const float* re, const float* im, const float* mask, float* out, int16_t n) {
    for (int32_t k = 0; k < n; ++k) {
        const float gain_re = mask[2 * k], gain_im = mask[2 * k + 1];
        out[2 * k] = re[k] * gain_re - im[k] * gain_im;
        out[2 * k + 1] = re[k] * gain_im + im[k] * gain_re;
    }
    if (n > 0) out[1] = 0.0f;
}
