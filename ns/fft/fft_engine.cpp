#include <cmath>
#include <cstring>
#include <utility>

#include "vq_ns_fft.h"

namespace {

constexpr float kSqrtHalf = 0.70710677f;

/* Six arrays of one butterfly's table. */
struct Twiddles {
    const float *cos1, *minus_sum1, *difference1, *cos3, *minus_sum3, *difference3;
};

Twiddles table_of(const vq_ns_fft_data& fft, int32_t m) {
    const float* at = fft.twiddles[m - VQ_NS_FFT_LEAST_TWIDDLED];
    const int32_t count = (1 << m) / 4 - 2;
    return {at, at + count, at + 2 * count, at + 3 * count, at + 4 * count, at + 5 * count};
}

void write_table(float* at, int32_t m) {
    const int32_t size = 1 << m;
    const int32_t count = size / 4 - 2;
    for (int32_t k = 1, slot = 0; k < size / 4; ++k) {
        if (k == size / 8) continue;
        for (int harmonic = 0; harmonic < 2; ++harmonic) {
            const double turns = harmonic == 0 ? k : 3 * k;
            const float angle = static_cast<float>(turns * 6.283185307179586 / size);
            const double c = std::cos(static_cast<double>(angle));
            const double s = std::sin(static_cast<double>(angle));
            float* arrays = at + harmonic * 3 * count;
            arrays[slot] = static_cast<float>(c);
            arrays[count + slot] = static_cast<float>(-(c + s));
            arrays[2 * count + slot] = static_cast<float>(s - c);
        }
        ++slot;
    }
}

/* Multiplies x[from .. to) by e^(-i angle) with three products a point; the tables start at slot `table`. */
void rotate(float* re, float* im, int32_t from, int32_t to, const float* cosine, const float* minus_sum,
            const float* difference, int32_t table) {
    for (int32_t i = from; i < to; ++i, ++table) {
        const float p = (re[i] + im[i]) * cosine[table];
        const float rotated_re = im[i] * difference[table] + p;
        im[i] = re[i] * minus_sum[table] + p;
        re[i] = rotated_re;
    }
}

void rotate_quarters(const vq_ns_fft_data& fft, float* re, float* im, int32_t m) {
    const int32_t quarter = (1 << m) / 4;
    const int32_t eighth = quarter / 2;
    float *re3 = re + 2 * quarter, *im3 = im + 2 * quarter;
    float *re4 = re3 + quarter, *im4 = im3 + quarter;
    if (m >= VQ_NS_FFT_LEAST_TWIDDLED) {
        const Twiddles t = table_of(fft, m);
        rotate(re3, im3, 1, eighth, t.cos1, t.minus_sum1, t.difference1, 0);
        rotate(re3, im3, eighth + 1, quarter, t.cos1, t.minus_sum1, t.difference1, eighth - 1);
        rotate(re4, im4, 1, eighth, t.cos3, t.minus_sum3, t.difference3, 0);
        rotate(re4, im4, eighth + 1, quarter, t.cos3, t.minus_sum3, t.difference3, eighth - 1);
    }
    const float r3 = re3[eighth], i3 = im3[eighth], r4 = re4[eighth], i4 = im4[eighth];
    re3[eighth] = (r3 + i3) * kSqrtHalf;
    im3[eighth] = (i3 - r3) * kSqrtHalf;
    re4[eighth] = (i4 - r4) * kSqrtHalf;
    im4[eighth] = (r4 + i4) * -kSqrtHalf;
}

/* The vector kernels round counts up to eight: butterflies with shorter quarters use the plain ones. */
void butterfly(const vq_ns_fft_data& fft, float* re, float* im, int32_t m) {
    const int32_t quarter = (1 << m) / 4;
    const int32_t half = 2 * quarter;
    const bool whole_blocks = quarter % 8 == 0;
    const auto comp1 = whole_blocks ? fft.comp1 : vq_ns_fft_comp1;
    const auto comp2 = whole_blocks ? fft.comp2 : vq_ns_fft_comp2;
    comp1(re, re + half, im, im + half, half);
    comp2(re + half, re + half + quarter, im + half, im + half + quarter, quarter);
}

}  // namespace

int32_t vq_ns_fft_init(vq_ns_fft_data* fft, int32_t real_length, int32_t isa) {
    const int32_t n = real_length / 2;
    if (fft == nullptr || real_length < 4 || real_length > VQ_NS_FFT_MAX_REAL || (n & (n - 1)) != 0)
        return -1;
    std::memset(fft, 0, sizeof *fft);
    fft->n = n;
    while ((1 << fft->m) < n) ++fft->m;
    fft->real_length = static_cast<int16_t>(real_length);

    fft->seeds[1] = 1;
    for (int32_t level = 1; level < (fft->m + 1) / 2; ++level) {
        const int32_t k = 1 << level;
        for (int32_t i = 0; i < k; ++i) {
            fft->seeds[i] *= 2;
            fft->seeds[i + k] = fft->seeds[i] + 1;
        }
    }

    float* at = fft->twiddle_values;
    for (int32_t m = fft->m; m >= VQ_NS_FFT_LEAST_TWIDDLED; --m) {
        write_table(at, m);
        fft->twiddles[m - VQ_NS_FFT_LEAST_TWIDDLED] = at;
        at += 6 * ((1 << m) / 4 - 2);
    }

    const bool avx2 = isa == 2, avx = isa == 1;
    fft->compmag = avx2 ? vq_ns_fft_compmag_avx2 : avx ? vq_ns_fft_compmag_avx : vq_ns_fft_compmag;
    fft->compphase = avx2 ? vq_ns_fft_compphase_avx2 : avx ? vq_ns_fft_compphase_avx : vq_ns_fft_compphase;
    fft->proc1 = avx2 ? vq_ns_fft_proc1_avx2 : avx ? vq_ns_fft_proc1_avx : vq_ns_fft_proc1;
    fft->proc2 = avx2 ? vq_ns_fft_proc2_avx2 : avx ? vq_ns_fft_proc2_avx : vq_ns_fft_proc2;
    fft->comp1 = avx2 ? vq_ns_fft_comp1_avx2 : avx ? vq_ns_fft_comp1_avx : vq_ns_fft_comp1;
    fft->comp2 = avx2 ? vq_ns_fft_comp2_avx2 : avx ? vq_ns_fft_comp2_avx : vq_ns_fft_comp2;
    return 0;
}

void vq_ns_fft_comp(const vq_ns_fft_data* fft, float* re, float* im, int32_t m) {
    while (m > 1) {
        butterfly(*fft, re, im, m);
        if (m > 2) rotate_quarters(*fft, re, im, m);
        const int32_t half = (1 << m) / 2;
        vq_ns_fft_comp(fft, re, im, m - 1);
        vq_ns_fft_comp(fft, re + half, im + half, m - 2);
        re += half + half / 2;
        im += half + half / 2;
        m -= 2;
    }
    if (m == 1) vq_ns_fft_comp1(re, re + 1, im, im + 1, 1);
}

void vq_ns_fft_bitrev(float* x, const int32_t* seeds, int32_t m) {
    const int32_t low_bits = (m + 1) / 2;
    const int32_t high_bits = m - low_bits;
    for (int32_t high = 0; high < 1 << high_bits; ++high) {
        for (int32_t low = 0; low < 1 << low_bits; ++low) {
            const int32_t i = (high << low_bits) | low;
            const int32_t reversed = (seeds[low] << high_bits) | (seeds[high] >> (low_bits - high_bits));
            if (i < reversed) std::swap(x[i], x[reversed]);
        }
    }
}
