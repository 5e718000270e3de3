#include <cmath>

#include "vq_ns_kernels.h"

namespace {

constexpr float kEpsilon = 0.001f;

/* out = (x - mean) * scale; returns what brings it to unit variance. */
float centre_and_scale(const float* x, const float* scale, float* out, int32_t n, float per_element) {
    double sum = 0.0;
    for (int32_t i = 0; i < n; ++i) sum += static_cast<double>(x[i]);
    const float mean = static_cast<float>(sum * static_cast<double>(per_element));
    double squares = 0.0;
    for (int32_t i = 0; i < n; ++i) {
        const float centred = x[i] - mean;
        out[i] = scale[i] * centred;
        squares += static_cast<double>(centred) * static_cast<double>(centred);
    }
    const double variance =
        static_cast<double>(static_cast<float>(squares * static_cast<double>(per_element)));
    return static_cast<float>(1.0 / std::sqrt(variance + static_cast<double>(kEpsilon)));
}

}  // namespace

void vq_ns_nm0(const float* x, const float* scale, const float* shift, float* out, int16_t n, int16_t d) {
    const float inverse = centre_and_scale(x, scale, out, n, 1.0f / static_cast<float>(d));
    for (int32_t i = 0; i < n; ++i) out[i] = out[i] * inverse + shift[i];
}

void vq_ns_nm1(float* x, const float* scale, const float* shift, const float* slope, int16_t rows,
               int16_t ch) {
    const float per_element = 1.0f / static_cast<float>(ch);
    for (int32_t r = 0; r < rows; ++r, x += ch) {
        const float inverse = centre_and_scale(x, scale, x, ch, per_element);
        for (int32_t c = 0; c < ch; ++c) {
            const float y = x[c] * inverse + shift[c];
            /* y or y * slope[c], without a branch that nothing foretells. Not a number is "negative". */
            const float positive = 0.0f < y ? y : 0.0f, negative = 0.0f < y ? 0.0f : y;
            x[c] = positive + negative * slope[c];
        }
    }
}
