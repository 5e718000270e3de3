#include <cmath>

#include "vq_ns_fft.h"

void vq_ns_fft_compmag(const float* re_packed, const float* im_packed, float* out, int32_t real_length) {
    const int32_t last = real_length / 2;
    out[0] = std::fabs(re_packed[0]);
    for (int32_t k = 1; k < last; ++k) {
        out[k] = std::sqrt(re_packed[k] * re_packed[k] + im_packed[k] * im_packed[k]);
    }
    out[last] = std::fabs(im_packed[0]);
}

void vq_ns_fft_compphase(const float* re, const float* im, float* out, int32_t count) {
    for (int32_t k = 0; k < count; ++k) {
        out[k] = static_cast<float>(std::atan2(static_cast<double>(im[k]), static_cast<double>(re[k])));
    }
}

void vq_ns_fft_proc1(float* re, float* im, int32_t count) {
    for (int32_t i = 0; i < count; ++i) {
        re[i] = re[i] + im[i];
        im[i] = re[i] - im[i];
        re[i] = re[i] - im[i];
    }
}

void vq_ns_fft_proc2(float* x, int32_t count) {
    for (int32_t i = 0; i < count; ++i) x[i] *= 0.00390625f;
}

void vq_ns_fft_comp1(float* a_re, float* b_re, float* a_im, float* b_im, int32_t count) {
    for (int32_t i = 0; i < count; ++i) {
        const float difference_re = a_re[i] - b_re[i];
        const float difference_im = a_im[i] - b_im[i];
        a_re[i] += b_re[i];
        a_im[i] += b_im[i];
        b_re[i] = difference_re;
        b_im[i] = difference_im;
    }
}

void vq_ns_fft_comp2(float* re3, float* re4, float* im3, float* im4, int32_t count) {
    for (int32_t i = 0; i < count; ++i) {
        const float d1_re = re3[i], d1_im = im3[i], d2_re = re4[i], d2_im = im4[i];
        re3[i] = d1_re + d2_im;
        re4[i] = d1_re - d2_im;
        im3[i] = d1_im - d2_re;
        im4[i] = d1_im + d2_re;
    }
}
