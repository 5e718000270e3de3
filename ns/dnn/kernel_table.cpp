#include "kernel_table.h"

#include "vq_ns_kernels_simd.h"

namespace {

constexpr vq_ns_kernel_table kPlain = {
    .mclear = vq_ns_mclear,
    .cpy = vq_ns_cpy,
    .cpy_dpc = vq_ns_cpy_dpc,
    .add = vq_ns_add,
    .smac = vq_ns_smac,
    .smul = vq_ns_smul,
    .s2f = vq_ns_s2f,
    .concat = vq_ns_concat,
    .nm0 = vq_ns_nm0,
    .nm1 = vq_ns_nm1,
    .l1 = vq_ns_l1,
    .l2 = vq_ns_l2,
    .l3 = vq_ns_l3,
    .l4 = vq_ns_l4,
    .l5 = vq_ns_l5,
    .l6 = vq_ns_l6,
    .l7 = vq_ns_l7,
    .l8 = vq_ns_l8,
    .l9 = vq_ns_l9,
};

void put_avx_over(vq_ns_kernel_table* k) {
    k->cpy = vq_ns_cpy_avx;
    k->add = vq_ns_add_avx;
    k->smac = vq_ns_smac_avx;
    k->nm0 = vq_ns_nm0_avx;
    k->nm1 = vq_ns_nm1_avx;
    k->l1 = vq_ns_l1_avx;
    k->l2 = vq_ns_l2_avx;
    k->l3 = vq_ns_l3_avx;
    k->l4 = vq_ns_l4_avx;
    k->l5 = vq_ns_l5_avx;
    k->l6 = vq_ns_l6_avx;
    k->l7 = vq_ns_l7_avx;
    k->l8 = vq_ns_l8_avx;
}

void put_avx2_over(vq_ns_kernel_table* k) {
    k->cpy = vq_ns_cpy_avx2;
    k->add = vq_ns_add_avx2;
    k->smac = vq_ns_smac_avx2;
    k->smul = vq_ns_smul_avx2;
    k->s2f = vq_ns_s2f_avx2;
    k->nm0 = vq_ns_nm0_avx2;
    k->nm1 = vq_ns_nm1_avx2;
    k->l1 = vq_ns_l1_avx2;
    k->l2 = vq_ns_l2_avx2;
    k->l3 = vq_ns_l3_avx2;
    k->l4 = vq_ns_l4_avx2;
    k->l5 = vq_ns_l5_avx2;
    k->l6 = vq_ns_l6_avx2;
    k->l7 = vq_ns_l7_avx2;
    k->l8 = vq_ns_l8_avx2;
}

}  // namespace

/* The clear, the exact copy, the interleaving and the mask stay plain at every level. */
void fill_kernel_table(vq_ns_kernel_table* table, int32_t level) {
    *table = kPlain;
    if (level == VQ_NS_LEVEL_AVX) put_avx_over(table);
    if (level == VQ_NS_LEVEL_AVX2) put_avx2_over(table);
}
