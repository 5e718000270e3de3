/* vq_ns_qmf.h - a 24-tap quadrature mirror filter pair in 16-bit fixed point: one full-rate signal to a lower
 * and an upper half-rate band and back. The prototype is that of ITU-T G.722, doubled. Split halves the
 * amplitude, merge restores it; one after the other has unity gain. Merge and split use halves of the state
 * of their own.
 */
#ifndef VQ_NS_QMF_H
#define VQ_NS_QMF_H

#include "vqns_api.h"

/* Two delay lines of 24 samples, each stored twice, and the place in each of the next pair's older
 * sample, odd; the newer one goes below it. */
typedef struct vq_ns_qmf_state {
    int16_t analysis[48];
    int16_t synthesis[48];
    int16_t analysis_index;
    int16_t synthesis_index;
} vq_ns_qmf_state;

/* The filter, symmetric; its sum is 16384. */
VQNS_DATA const int16_t vq_ns_qcoef[24];

/* Clears both lines. Returns 0. */
VQNS_API int32_t vq_ns_qinit(vq_ns_qmf_state* state);

/* Splits count full-rate samples into count / 2 samples a band, each within +-16384 (the half range). An odd
 * last sample is left out. A count below 1 does nothing. */
VQNS_API void vq_ns_qsplit(vq_ns_qmf_state* state, const int16_t* input, int16_t* low, int16_t* high,
                           int16_t count);

/* Merges count samples a band into 2 * count full-rate samples. A count below 1 does nothing. */
VQNS_API void vq_ns_qmix(vq_ns_qmf_state* state, const int16_t* low, const int16_t* high, int16_t* output,
                         int16_t count);

#endif
