/* The vector kernels for processors with AVX2 and fused multiply-add. */
#include <immintrin.h>

#include "vq_ns_kernels.h"
#include "vq_ns_kernels_simd.h"

#define LEVEL(name) name##_avx2

namespace {

inline __m256 multiply_add(__m256 a, __m256 b, __m256 c) {
    return _mm256_fmadd_ps(a, b, c);
}

inline __m256d multiply_add(__m256d a, __m256d b, __m256d c) {
    return _mm256_fmadd_pd(a, b, c);
}

/* c - a b */
inline __m256 subtract_product(__m256 a, __m256 b, __m256 c) {
    return _mm256_fnmadd_ps(a, b, c);
}

inline __m256i widen(const int16_t* x) {
    return _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(x)));
}

}  // namespace

#include "kernels.inc"

void vq_ns_smul_avx2(float* acc, const float* b, int16_t n) {
    for (int32_t i = 0; i < n; i += 8) {
        _mm256_storeu_ps(acc + i, _mm256_mul_ps(_mm256_loadu_ps(acc + i), _mm256_loadu_ps(b + i)));
    }
}
