/* vq_ns_kernels_simd.h - the kernels of vq_ns_kernels.h for processors with AVX, and with AVX2 and fused
 * multiply-add. Arguments and tables are those of the kernel without suffix.
 *
 * mclear wants its array on a 32-byte boundary; the others take any alignment. The element kernels give the
 * plain kernels' results bit for bit and keep to the same blocks. The others agree with them to within
 * rounding: sums are formed in another order, and at the AVX2 level products are added without rounding them
 * first. l4 takes its sigmoid and tanh from an exponential good to 2e-7 rather than from tansig_table; with
 * more than 64 units whose states overlap from row to row it is the plain kernel.
 *
 * The engine calls these through vq_ns_kernel_table. mclear_avx, mclear_avx2 and s2f_avx are in none.
 */
#ifndef VQ_NS_KERNELS_SIMD_H
#define VQ_NS_KERNELS_SIMD_H

#include "vqns_api.h"

VQNS_API void vq_ns_mclear_avx(float* x, int16_t n);
VQNS_API void vq_ns_cpy_avx(const float* src, float* dst, int16_t n);
VQNS_API void vq_ns_add_avx(float* acc, const float* b, int16_t n);
VQNS_API void vq_ns_smac_avx(float* x, float s, int16_t n);
VQNS_API void vq_ns_s2f_avx(const int16_t* in, float* out, int16_t n);
VQNS_API void vq_ns_nm0_avx(const float* x, const float* scale, const float* shift, float* out, int16_t n,
                            int16_t d);
VQNS_API void vq_ns_nm1_avx(float* x, const float* scale, const float* shift, const float* slope,
                            int16_t rows, int16_t ch);
VQNS_API void vq_ns_l1_avx(const float* in, const float* w, const float* bias, float* out, int16_t ch_in,
                           int16_t ch_out, int16_t bins_in, int16_t bins_out);
VQNS_API void vq_ns_l2_avx(const float* in, const float* w, const float* bias, float* out, int16_t ch_in,
                           int16_t ch_out, int16_t bins_in, int16_t bins_out);
VQNS_API void vq_ns_l3_avx(const float* in, const float* w, const float* bias, float* out, int16_t ch_in,
                           int16_t ch_out, int16_t bins_in, int16_t bins_out);
VQNS_API void vq_ns_l4_avx(const float* x, float* out, float* h, const float* wi, const float* wh,
                           const float* b, int16_t rows, int16_t units, int16_t stride);
VQNS_API void vq_ns_l5_avx(const float* in, const float* w, const float* b, float* out, int16_t rows,
                           int16_t units);
VQNS_API void vq_ns_l6_avx(const float* in, const float* w, const float* bias, float* out, int16_t ch_in,
                           int16_t ch_out, int16_t bins_in, int16_t bins_out);
VQNS_API void vq_ns_l7_avx(const float* in, const float* w, const float* bias, float* out, int16_t ch_in,
                           int16_t ch_out, int16_t bins_in, int16_t bins_out);
VQNS_API void vq_ns_l8_avx(const float* in, const float* w, const float* bias, float* out, int16_t ch_in,
                           int16_t ch_out, int16_t bins_in, int16_t bins_out);

VQNS_API void vq_ns_mclear_avx2(float* x, int16_t n);
VQNS_API void vq_ns_cpy_avx2(const float* src, float* dst, int16_t n);
VQNS_API void vq_ns_add_avx2(float* acc, const float* b, int16_t n);
VQNS_API void vq_ns_smac_avx2(float* x, float s, int16_t n);
VQNS_API void vq_ns_smul_avx2(float* acc, const float* b, int16_t n);
VQNS_API void vq_ns_s2f_avx2(const int16_t* in, float* out, int16_t n);
VQNS_API void vq_ns_nm0_avx2(const float* x, const float* scale, const float* shift, float* out, int16_t n,
                             int16_t d);
VQNS_API void vq_ns_nm1_avx2(float* x, const float* scale, const float* shift, const float* slope,
                             int16_t rows, int16_t ch);
VQNS_API void vq_ns_l1_avx2(const float* in, const float* w, const float* bias, float* out, int16_t ch_in,
                            int16_t ch_out, int16_t bins_in, int16_t bins_out);
VQNS_API void vq_ns_l2_avx2(const float* in, const float* w, const float* bias, float* out, int16_t ch_in,
                            int16_t ch_out, int16_t bins_in, int16_t bins_out);
VQNS_API void vq_ns_l3_avx2(const float* in, const float* w, const float* bias, float* out, int16_t ch_in,
                            int16_t ch_out, int16_t bins_in, int16_t bins_out);
VQNS_API void vq_ns_l4_avx2(const float* x, float* out, float* h, const float* wi, const float* wh,
                            const float* b, int16_t rows, int16_t units, int16_t stride);
VQNS_API void vq_ns_l5_avx2(const float* in, const float* w, const float* b, float* out, int16_t rows,
                            int16_t units);
VQNS_API void vq_ns_l6_avx2(const float* in, const float* w, const float* bias, float* out, int16_t ch_in,
                            int16_t ch_out, int16_t bins_in, int16_t bins_out);
VQNS_API void vq_ns_l7_avx2(const float* in, const float* w, const float* bias, float* out, int16_t ch_in,
                            int16_t ch_out, int16_t bins_in, int16_t bins_out);
VQNS_API void vq_ns_l8_avx2(const float* in, const float* w, const float* bias, float* out, int16_t ch_in,
                            int16_t ch_out, int16_t bins_in, int16_t bins_out);

#endif
