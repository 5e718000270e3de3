/* vq_ns_fft.h - the FFT engine and the real transforms of one 512-point frame.
 *
 * The engine is an in-place, single-precision, split-radix complex FFT on split
 * planes (one array of real parts, one of imaginary parts). Around it stand the
 * real transforms: 512 real samples to 257 bins and back, by packing even samples
 * as real and odd samples as imaginary parts of 256 complex points.
 *
 * What it does not do: no scaling forward, no lengths but powers of two, and the
 * real transforms know 512 points alone.
 *
 * Ownership and threads: the caller owns every record and buffer; nothing is
 * allocated. A record is written by vq_ns_fft_init alone; any number of threads
 * may transform with one record at once, each on buffers of its own. The record
 * holds pointers into itself: initialise it where it stays, never copy it.
 *
 * Source: H. V. Sorensen, M. T. Heideman, C. S. Burrus, "On computing the
 * split-radix FFT", IEEE Trans. ASSP 34(1), 1986.
 */
#ifndef VQ_NS_FFT_H
#define VQ_NS_FFT_H

#include <stdbool.h>

#include "vqns_api.h"

enum {
    VQ_NS_FFT_MAX_REAL = 512,     /* longest real frame */
    VQ_NS_FFT_MAX_SEEDS = 16,     /* 2^ceil(log2(256) / 2) */
    VQ_NS_FFT_LEAST_TWIDDLED = 4, /* log2 of the smallest butterfly with a table */
    VQ_NS_FFT_TWIDDLED_SIZES = 5, /* butterflies of 16, 32, 64, 128 and 256 points */
    VQ_NS_FFT_TWIDDLES = 6 * (2 + 6 + 14 + 30 + 62)
};

/* The engine record. Kernel counts are numbers of floats. */
typedef struct vq_ns_fft_data {
    int32_t n;                          /* complex size: half the real length */
    int32_t m;                          /* log2(n) */
    int32_t seeds[VQ_NS_FFT_MAX_SEEDS]; /* bit-reversal seeds, 2^ceil(m/2) used */
    /* Table of the butterfly of 2^s points at [s - 4]: six arrays of 2^s / 4 - 2 values, for
     * k = 1 .. 2^s / 4 - 1 without 2^s / 8, a = 2 pi k / 2^s:
     * cos a, -(cos a + sin a), sin a - cos a, then the same of 3a. */
    const float* twiddles[VQ_NS_FFT_TWIDDLED_SIZES];
    float twiddle_values[VQ_NS_FFT_TWIDDLES];
    int16_t real_length; /* as given to init */
    void (*compmag)(const float* re_packed, const float* im_packed, float* out, int32_t real_length);
    void (*compphase)(const float* re, const float* im, float* out, int32_t count);
    void (*proc1)(float* re, float* im, int32_t count);
    void (*proc2)(float* x, int32_t count);
    void (*comp1)(float* a_re, float* b_re, float* a_im, float* b_im, int32_t count);
    void (*comp2)(float* re3, float* re4, float* im3, float* im4, int32_t count);
} vq_ns_fft_data;

/* Prepares a record for frames of real_length samples, 4 to 512, half of it (rounded down) a power of two.
 * isa: 2 for the AVX2 kernels, 1 for the AVX kernels, any other value for the plain ones.
 * Returns 0; -1 for a length out of range, the record then untouched. */
VQNS_API int32_t vq_ns_fft_init(vq_ns_fft_data* fft, int32_t real_length, int32_t isa);

/* Unscaled forward transform of the 2^m points (re, im), in place, X[k] = sum x[j] e^(-2 pi i jk / 2^m),
 * in bit-reversed order; m below 1 does nothing. m must not exceed the record's. */
VQNS_API void vq_ns_fft_comp(const vq_ns_fft_data* fft, float* re, float* im, int32_t m);

/* Permutes the 2^m values of one plane from bit-reversed into natural order; seeds and m
 * are the record's: its table serves no other size. */
VQNS_API void vq_ns_fft_bitrev(float* x, const int32_t* seeds, int32_t m);

/* Real transforms of a record made for 512; the two functions are one routine. 0, or -1 with nothing done for
 * a record of another length.
 *
 * forward: time[512] (read only) to bins 0..256 in re[257] and im[257], unscaled, with
 *   im[0] = im[256] = 0.
 * else: time[512] holds the spectrum (time[0] bin 0, time[1] bin 256, both real; time[2k] and time[2k+1]
 *   the parts of bin k) and receives 512 samples. re[257] and im[257] are work space. The constant
 *   term, (bin 0 + bin 256) / 512, comes out on the even samples alone: the odd ones lose their mean, and a
 *   constant frame c returns as c, 0, c, 0 ... */
VQNS_API int32_t vq_ns_fft_process(const vq_ns_fft_data* fft, float* time, bool forward, float* re,
                                   float* im);
VQNS_API int32_t vq_ns_ifft_process(const vq_ns_fft_data* fft, float* time, bool forward, float* re,
                                    float* im);

/* Periodic Hann window of the 480-sample frame; over hops of 160 its square adds up to 1.125. */
VQNS_DATA const float hanning_win_coeff[480];

/* Kernels. Each has a plain, an AVX and an AVX2 version with identical results. The plain ones touch exactly
 * count floats. The others, but for compmag and compphase, work in whole blocks of eight: pass multiples of
 * eight, in any alignment.
 *
 *   compmag    out[k] = sqrt(re^2 + im^2) for the real_length / 2 + 1 bins of a packed spectrum, entry 0 of
 *              which holds bin 0 in re and bin real_length / 2 in im; out must not overlap the inputs
 *   compphase  out[k] = atan2(im[k], re[k])
 *   proc1      exchanges two planes by re += im, im = re - im, re -= im (rounded like that)
 *   proc2      x[i] *= 1/256
 *   comp1      radix-2 butterfly: a becomes a + b, b becomes a - b, on both planes
 *   comp2      re3, re4, im3, im4 become re3 + im4, re3 - im4, im3 - re4, im3 + re4 */
VQNS_API void vq_ns_fft_compmag(const float* re_packed, const float* im_packed, float* out,
                                int32_t real_length);
VQNS_API void vq_ns_fft_compphase(const float* re, const float* im, float* out, int32_t count);
VQNS_API void vq_ns_fft_proc1(float* re, float* im, int32_t count);
VQNS_API void vq_ns_fft_proc2(float* x, int32_t count);
VQNS_API void vq_ns_fft_comp1(float* a_re, float* b_re, float* a_im, float* b_im, int32_t count);
VQNS_API void vq_ns_fft_comp2(float* re3, float* re4, float* im3, float* im4, int32_t count);

VQNS_API void vq_ns_fft_compmag_avx(const float* re_packed, const float* im_packed, float* out,
                                    int32_t real_length);
VQNS_API void vq_ns_fft_compphase_avx(const float* re, const float* im, float* out, int32_t count);
VQNS_API void vq_ns_fft_proc1_avx(float* re, float* im, int32_t count);
VQNS_API void vq_ns_fft_proc2_avx(float* x, int32_t count);
VQNS_API void vq_ns_fft_comp1_avx(float* a_re, float* b_re, float* a_im, float* b_im, int32_t count);
VQNS_API void vq_ns_fft_comp2_avx(float* re3, float* re4, float* im3, float* im4, int32_t count);

VQNS_API void vq_ns_fft_compmag_avx2(const float* re_packed, const float* im_packed, float* out,
                                     int32_t real_length);
VQNS_API void vq_ns_fft_compphase_avx2(const float* re, const float* im, float* out, int32_t count);
VQNS_API void vq_ns_fft_proc1_avx2(float* re, float* im, int32_t count);
VQNS_API void vq_ns_fft_proc2_avx2(float* x, int32_t count);
VQNS_API void vq_ns_fft_comp1_avx2(float* a_re, float* b_re, float* a_im, float* b_im, int32_t count);
VQNS_API void vq_ns_fft_comp2_avx2(float* re3, float* re4, float* im3, float* im4, int32_t count);

#endif
