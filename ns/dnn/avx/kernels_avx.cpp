/* The vector kernels for processors with AVX alone: products are rounded before they are added. */
#include <immintrin.h>

#include "vq_ns_kernels.h"
#include "vq_ns_kernels_simd.h"

#define LEVEL(name) name##_avx

namespace {

inline __m256 multiply_add(__m256 a, __m256 b, __m256 c) {
    return _mm256_add_ps(_mm256_mul_ps(a, b), c);
}

inline __m256d multiply_add(__m256d a, __m256d b, __m256d c) {
    return _mm256_add_pd(_mm256_mul_pd(a, b), c);
}

/* c - a b */
inline __m256 subtract_product(__m256 a, __m256 b, __m256 c) {
    return _mm256_sub_ps(c, _mm256_mul_ps(a, b));
}

inline __m256i widen(const int16_t* x) {
    const __m128i all = _mm_loadu_si128(reinterpret_cast<const __m128i*>(x));
    const __m128i low = _mm_cvtepi16_epi32(all), high = _mm_cvtepi16_epi32(_mm_unpackhi_epi64(all, all));
    return _mm256_insertf128_si256(_mm256_castsi128_si256(low), high, 1);
}

}  // namespace

#include "kernels.inc"
