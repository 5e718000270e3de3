/* vq_ns_kernels.h - the float kernels of the network and the table through which they are called.
 *
 * All arrays are 32-bit floats unless stated; any alignment will do unless stated. Counts are 16-bit and
 * count elements. No kernel keeps state, allocates or fails; all may run on any thread. Arguments do not
 * overlap unless stated.
 *
 * Maps are stored frequency-major with channels fastest: bin f, channel c at f * channels + c.
 * Weights are stored in blocks of eight outputs (vq_ns_model.h gives every order).
 */
#ifndef VQ_NS_KERNELS_H
#define VQ_NS_KERNELS_H

#include "vqns_api.h"

/* ---- Element kernels ----
 *
 * All but cpy_dpc and concat work in whole blocks of eight: a count n > 0 is rounded up to a multiple of
 * eight, and that many elements are read and written. A count below 1 does nothing. */

/* x[i] = 0 */
VQNS_API void vq_ns_mclear(float* x, int16_t n);
/* dst[i] = src[i], ascending in blocks: dst may lie below src in one array */
VQNS_API void vq_ns_cpy(const float* src, float* dst, int16_t n);
/* dst[i] = src[i] for exactly n elements, with the effect of an ascending element copy wherever the two lie:
 * a destination below its source moves the data down; one above it within n repeats the first elements. */
VQNS_API void vq_ns_cpy_dpc(const float* src, float* dst, int16_t n);
/* acc[i] += b[i] */
VQNS_API void vq_ns_add(float* acc, const float* b, int16_t n);
/* x[i] *= s (it scales; nothing is accumulated) */
VQNS_API void vq_ns_smac(float* x, float s, int16_t n);
/* acc[i] *= b[i] */
VQNS_API void vq_ns_smul(float* acc, const float* b, int16_t n);
/* out[i] = in[i] / 32768: 16-bit PCM to [-1, 1) */
VQNS_API void vq_ns_s2f(const int16_t* in, float* out, int16_t n);
/* Interleaves two planes: out[2j] = a[j], out[2j + 1] = b[j] while 2j < n; n counts output elements. */
VQNS_API void vq_ns_concat(float* out, const float* a, const float* b, int16_t n);

/* ---- Activations ---- */

/* tanh(x) by the second-order Taylor step around the nearest entry of tansig_table; exactly +-1 from |x| = 8,
 * 1 for not a number. */
VQNS_API float vq_ns_tansig_approx(float x);
/* 1 / (1 + e^-x) = (1 + tanh(x / 2)) / 2, through the above */
VQNS_API float vq_ns_sigmoid_approx(float x);
/* tanh(0.04 i), six decimals */
VQNS_DATA const float tansig_table[201];

/* ---- Normalisation ----
 *
 * y = (x - mean) / sqrt(variance + 0.001) * scale + shift; sums are formed in double precision. */

/* Over x[n]; both sums are divided by d, which differs from n where padding is counted. out may be x. */
VQNS_API void vq_ns_nm0(const float* x, const float* scale, const float* shift, float* out, int16_t n,
                        int16_t d);
/* In place over the ch channels of each of `rows` bins, followed by PReLU: y > 0 ? y : y * slope[c]. */
VQNS_API void vq_ns_nm1(float* x, const float* scale, const float* shift, const float* slope, int16_t rows,
                        int16_t ch);

/* ---- Layers ----
 *
 * ch_out is a multiple of eight except in l8, `units` always. */

/* Convolutions, stride 2 over bins, no padding: bins_out = (bins_in - K) / 2 + 1.
 *   out[f][o] = bias[o] + sum over t, k, c of W(t, k, c, o) * in_t[2f + k][c]
 * `in` holds T frames of bins_in x ch_in back to back, the newest last. `out` is written.
 *   l1: T 2, K 5     l2: T 2, K 3     l3: T 1, K 3 */
VQNS_API void vq_ns_l1(const float* in, const float* w, const float* bias, float* out, int16_t ch_in,
                       int16_t ch_out, int16_t bins_in, int16_t bins_out);
VQNS_API void vq_ns_l2(const float* in, const float* w, const float* bias, float* out, int16_t ch_in,
                       int16_t ch_out, int16_t bins_in, int16_t bins_out);
VQNS_API void vq_ns_l3(const float* in, const float* w, const float* bias, float* out, int16_t ch_in,
                       int16_t ch_out, int16_t bins_in, int16_t bins_out);

/* Gated recurrent layer of `units` inputs and units, one step a row, ascending:
 *   z = sigmoid(Wz x + Uz h), r = sigmoid(Wr x + Ur h), n = tanh(Wn x + r * (Un h)), each product with its
 *   bias; h' = z * h + (1 - z) * n
 * Row t reads x + t * units and the state h + t * stride, and writes the new state to out + t * units and
 * over the old one: stride 0 carries one state from row to row, stride `units` gives each row its own.
 * Source: K. Cho et al., 2014, in the form that applies the reset gate after the recurrent product. */
VQNS_API void vq_ns_l4(const float* x, float* out, float* h, const float* wi, const float* wh, const float* b,
                       int16_t rows, int16_t units, int16_t stride);

/* Dense layer: out[t][j] = b[j] + sum over i of in[t][i] * W(i, j), `units` inputs and outputs a row. */
VQNS_API void vq_ns_l5(const float* in, const float* w, const float* b, float* out, int16_t rows,
                       int16_t units);

/* Transposed convolutions, stride 2 over bins: bins_out = (bins_in - 1) * 2 + K.
 *   out_t[2f + k][o] += sum over c of W(t, k, c, o) * in[f][c],  then out_0[f][o] += bias[o]
 * `out` holds T frames of bins_out x ch_out back to back: the current one, then the carry into the next. Both
 * are added to: prepare them. l6: T 1, K 3     l7: T 2, K 3     l8: T 2, K 5, ch_out 2 */
VQNS_API void vq_ns_l6(const float* in, const float* w, const float* bias, float* out, int16_t ch_in,
                       int16_t ch_out, int16_t bins_in, int16_t bins_out);
VQNS_API void vq_ns_l7(const float* in, const float* w, const float* bias, float* out, int16_t ch_in,
                       int16_t ch_out, int16_t bins_in, int16_t bins_out);
VQNS_API void vq_ns_l8(const float* in, const float* w, const float* bias, float* out, int16_t ch_in,
                       int16_t ch_out, int16_t bins_in, int16_t bins_out);

/* Complex mask over n bins: out[k] = (re[k] + i im[k]) * mask[k], pairs (real, imaginary) in mask and out;
 * the imaginary part of bin 0 is 0. */
VQNS_API void vq_ns_l9(const float* re, const float* im, const float* mask, float* out, int16_t n);

/* ---- The table ---- */

enum { VQ_NS_LEVEL_GENERIC = 0, VQ_NS_LEVEL_AVX = 1, VQ_NS_LEVEL_AVX2 = 2 };

typedef void vq_ns_convolution_fn(const float* in, const float* w, const float* bias, float* out,
                                  int16_t ch_in, int16_t ch_out, int16_t bins_in, int16_t bins_out);

/* The 19 kernels of one level, in slot order. */
typedef struct vq_ns_kernel_table {
    void (*mclear)(float* x, int16_t n);
    void (*cpy)(const float* src, float* dst, int16_t n);
    void (*cpy_dpc)(const float* src, float* dst, int16_t n);
    void (*add)(float* acc, const float* b, int16_t n);
    void (*smac)(float* x, float s, int16_t n);
    void (*smul)(float* acc, const float* b, int16_t n);
    void (*s2f)(const int16_t* in, float* out, int16_t n);
    void (*concat)(float* out, const float* a, const float* b, int16_t n);
    void (*nm0)(const float* x, const float* scale, const float* shift, float* out, int16_t n, int16_t d);
    void (*nm1)(float* x, const float* scale, const float* shift, const float* slope, int16_t rows,
                int16_t ch);
    vq_ns_convolution_fn* l1;
    vq_ns_convolution_fn* l2;
    vq_ns_convolution_fn* l3;
    void (*l4)(const float* x, float* out, float* h, const float* wi, const float* wh, const float* b,
               int16_t rows, int16_t units, int16_t stride);
    void (*l5)(const float* in, const float* w, const float* b, float* out, int16_t rows, int16_t units);
    vq_ns_convolution_fn* l6;
    vq_ns_convolution_fn* l7;
    vq_ns_convolution_fn* l8;
    void (*l9)(const float* re, const float* im, const float* mask, float* out, int16_t n);
} vq_ns_kernel_table;

#endif
