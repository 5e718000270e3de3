#include <cmath>

#include "vq_ns_kernels.h"

float vq_ns_tansig_approx(float x) {
    /* Written so that a not-a-number saturates too. */
    if (!(x < 8.0f)) return 1.0f;
    if (!(x > -8.0f)) return -1.0f;
    const float a = std::fabs(x);
    /* Not by a branch: nothing foretells the sign. The sum makes a negative zero positive. */
    const float sign = std::copysign(1.0f, x + 0.0f);
    const int i = static_cast<int>(a * 25.0f + 0.5f);
    const float y = tansig_table[i];
    const float d = a - static_cast<float>(i) * 0.04f;
    return sign * (y + (1.0f - y * y) * d * (1.0f - y * d));
}

float vq_ns_sigmoid_approx(float x) {
    return 0.5f * vq_ns_tansig_approx(0.5f * x) + 0.5f;
}
