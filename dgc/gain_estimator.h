/* The gain estimate on one speech frame. */
#ifndef VQNS_GAIN_ESTIMATOR_H
#define VQNS_GAIN_ESTIMATOR_H

#include "gain_control.h"

/* Takes a 16 kHz speech frame of 160 samples, which it overwrites, moves the record's trackers on and
 * returns the new gain_speech. */
int32_t rk_dsp_dgc_kwenh_gain_est(rk_voip_dsp_dgc_kwenh_data_t* record, int16_t* frame);

/* 1/sqrt(x) in Q30 by linear interpolation in a table; 0x3FFFFFFF for x <= 0. */
int32_t rk_dgc_kwenh_inv_sqrt(int32_t x);

#endif
