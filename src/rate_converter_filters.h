/* rate_converter_filters.h - coefficient tables of the rate converter's stages.
 *
 * rk_voip_dsp_ph_<L>_by_<M> is the low pass of a stage that goes up by L and down by M: Q15, L runs of T
 * taps, run p with the taps of polyphase branch p (prototype taps p, p + L, p + 2L, ...). T is
 * (20 * max(L, M) + 1) / L, or (10 * max(L, M) + 1) / L for the short filters named _lcmplx.
 *
 * The prototype is symmetric about its tap L*T/2 and has its cutoff at pi / max(L, M) and the gain L, so
 * that every branch has unity gain. The long 1-by-3 filter is the exception: gain 1.17, and no flat pass
 * band. The source file names the windows, and the stop-band attenuation and pass-band ripple that each
 * table reaches. */
#ifndef VQNS_RATE_CONVERTER_FILTERS_H
#define VQNS_RATE_CONVERTER_FILTERS_H

#include "vqns_api.h"

VQNS_DATA const int16_t rk_voip_dsp_ph_1_by_2[1 * 41];
VQNS_DATA const int16_t rk_voip_dsp_ph_1_by_3[1 * 61];
VQNS_DATA const int16_t rk_voip_dsp_ph_1_by_4[1 * 81];
VQNS_DATA const int16_t rk_voip_dsp_ph_2_by_1[2 * 20];
VQNS_DATA const int16_t rk_voip_dsp_ph_2_by_7[2 * 70];
VQNS_DATA const int16_t rk_voip_dsp_ph_3_by_1[3 * 20];
VQNS_DATA const int16_t rk_voip_dsp_ph_3_by_5[3 * 33];
VQNS_DATA const int16_t rk_voip_dsp_ph_3_by_10[3 * 67];
VQNS_DATA const int16_t rk_voip_dsp_ph_4_by_7[4 * 35];
VQNS_DATA const int16_t rk_voip_dsp_ph_5_by_3[5 * 20];
VQNS_DATA const int16_t rk_voip_dsp_ph_5_by_8[5 * 32];
VQNS_DATA const int16_t rk_voip_dsp_ph_5_by_9[5 * 36];
VQNS_DATA const int16_t rk_voip_dsp_ph_6_by_1[6 * 20];
VQNS_DATA const int16_t rk_voip_dsp_ph_7_by_4[7 * 20];
VQNS_DATA const int16_t rk_voip_dsp_ph_7_by_8[7 * 23];
VQNS_DATA const int16_t rk_voip_dsp_ph_8_by_7[8 * 20];
VQNS_DATA const int16_t rk_voip_dsp_ph_9_by_5[9 * 20];
VQNS_DATA const int16_t rk_voip_dsp_ph_9_by_10[9 * 22];
VQNS_DATA const int16_t rk_voip_dsp_ph_9_by_20[9 * 44];
VQNS_DATA const int16_t rk_voip_dsp_ph_10_by_9[10 * 20];
VQNS_DATA const int16_t rk_voip_dsp_ph_20_by_9[20 * 20];

VQNS_DATA const int16_t rk_voip_dsp_ph_1_by_2_lcmplx[1 * 21];
VQNS_DATA const int16_t rk_voip_dsp_ph_1_by_3_lcmplx[1 * 31];
VQNS_DATA const int16_t rk_voip_dsp_ph_1_by_4_lcmplx[1 * 41];
VQNS_DATA const int16_t rk_voip_dsp_ph_1_by_6_lcmplx[1 * 61];
VQNS_DATA const int16_t rk_voip_dsp_ph_1_by_8_lcmplx[1 * 81];
VQNS_DATA const int16_t rk_voip_dsp_ph_2_by_1_lcmplx[2 * 10];
VQNS_DATA const int16_t rk_voip_dsp_ph_2_by_3_lcmplx[2 * 15];
VQNS_DATA const int16_t rk_voip_dsp_ph_2_by_7_lcmplx[2 * 35];
VQNS_DATA const int16_t rk_voip_dsp_ph_3_by_1_lcmplx[3 * 10];
VQNS_DATA const int16_t rk_voip_dsp_ph_3_by_4_lcmplx[3 * 13];
VQNS_DATA const int16_t rk_voip_dsp_ph_3_by_5_lcmplx[3 * 17];
VQNS_DATA const int16_t rk_voip_dsp_ph_3_by_10_lcmplx[3 * 33];
VQNS_DATA const int16_t rk_voip_dsp_ph_4_by_1_lcmplx[4 * 10];
VQNS_DATA const int16_t rk_voip_dsp_ph_4_by_7_lcmplx[4 * 17];
VQNS_DATA const int16_t rk_voip_dsp_ph_5_by_3_lcmplx[5 * 10];
VQNS_DATA const int16_t rk_voip_dsp_ph_5_by_8_lcmplx[5 * 16];
VQNS_DATA const int16_t rk_voip_dsp_ph_5_by_9_lcmplx[5 * 18];
VQNS_DATA const int16_t rk_voip_dsp_ph_6_by_1_lcmplx[6 * 10];
VQNS_DATA const int16_t rk_voip_dsp_ph_7_by_4_lcmplx[7 * 10];
VQNS_DATA const int16_t rk_voip_dsp_ph_7_by_8_lcmplx[7 * 11];
VQNS_DATA const int16_t rk_voip_dsp_ph_8_by_7_lcmplx[8 * 10];
VQNS_DATA const int16_t rk_voip_dsp_ph_9_by_5_lcmplx[9 * 10];
VQNS_DATA const int16_t rk_voip_dsp_ph_9_by_10_lcmplx[9 * 11];
VQNS_DATA const int16_t rk_voip_dsp_ph_9_by_20_lcmplx[9 * 22];
VQNS_DATA const int16_t rk_voip_dsp_ph_10_by_9_lcmplx[10 * 10];
VQNS_DATA const int16_t rk_voip_dsp_ph_20_by_9_lcmplx[20 * 10];

#endif
