/* The one rule by which a Q15 gain scales samples. */
#ifndef VQNS_GAIN_APPLY_H
#define VQNS_GAIN_APPLY_H

#include <cstdint>

/* Scales `count` samples in place: (x gain) >> 15, the product wrapping in 32 bits, the result limited to
 * -32767..32767, so that it never holds the one value that has no opposite. */
void rk_dsp_dgc_kwenh_apply(int16_t* samples, int32_t count, int32_t gain);

#endif
