#include "vq_ns_kernels.h"

/* Counts are widened before they step: a count of 32767 has its last block end at 32768. */

void vq_ns_mclear(float* x, int16_t n) {
    for (int32_t i = 0; i < n; i += 8) {
        for (int32_t j = i; j < i + 8; ++j) x[j] = 0.0f;
    }
}

void vq_ns_cpy(const float* src, float* dst, int16_t n) {
    for (int32_t i = 0; i < n; i += 8) {
        for (int32_t j = i; j < i + 8; ++j) dst[j] = src[j];
    }
}

void vq_ns_cpy_dpc(const float* src, float* dst, int16_t n) {
    int32_t i = 0;
    /* A block read whole before it is written gives what an element copy gives only where no element of the
     * block is written before it is read. */
    const ptrdiff_t distance = (reinterpret_cast<intptr_t>(dst) - reinterpret_cast<intptr_t>(src)) /
                               static_cast<ptrdiff_t>(sizeof *src);
    if (distance >= 8 || distance <= -8) {
        for (; i + 8 <= n; i += 8) {
            float block[8];
            for (int32_t j = 0; j < 8; ++j) block[j] = src[i + j];
            for (int32_t j = 0; j < 8; ++j) dst[i + j] = block[j];
        }
    }
    for (; i < n; ++i) dst[i] = src[i];
}

void vq_ns_add(float* acc, const float* b, int16_t n) {
    for (int32_t i = 0; i < n; i += 8) {
        for (int32_t j = i; j < i + 8; ++j) acc[j] += b[j];
    }
}

void vq_ns_smac(float* x, float s, int16_t n) {
    for (int32_t i = 0; i < n; i += 8) {
        for (int32_t j = i; j < i + 8; ++j) x[j] *= s;
    }
}

void vq_ns_smul(float* acc, const float* b, int16_t n) {
    for (int32_t i = 0; i < n; i += 8) {
        for (int32_t j = i; j < i + 8; ++j) acc[j] *= b[j];
    }
}

void vq_ns_s2f(const int16_t* in, float* out, int16_t n) {
    for (int32_t i = 0; i < n; i += 8) {
        for (int32_t j = i; j < i + 8; ++j) out[j] = static_cast<float>(in[j]) * 3.0517578e-5f;
    }
}

void vq_ns_concat(float* out, const float* a, const float* b, int16_t n) {
    for (int32_t j = 0; 2 * j < n; ++j) {
        out[2 * j] = a[j];
        out[2 * j + 1] = b[j];
    }
}
