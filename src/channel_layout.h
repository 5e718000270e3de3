/* channel_layout.h - interleaved stereo to and from mono or split channels, on 16-bit PCM.
 *
 * Interleaved stereo is left, right, left, right, ... A count below 1 does nothing. Elements are read
 * and written in ascending order, one frame after the other, so buffers may overlap wherever no output
 * overtakes an input that is still to be read: rk_dsp_stereo_to_mono with dst equal to src, and
 * rk_dsp_stereo_split with left equal to interleaved, work in place. The functions keep no state and
 * may run on any thread. */
#ifndef VQNS_CHANNEL_LAYOUT_H
#define VQNS_CHANNEL_LAYOUT_H

#include "vqns_api.h"

/* Folds 2*count interleaved samples to count mono samples. The first 4*(count/4) outputs are the left
 * channel alone; the last count%4 are the mean of both channels, rounded towards minus infinity. */
VQNS_API void rk_dsp_stereo_to_mono(int16_t* dst, const int16_t* src, int16_t count);

/* Doubles count mono samples into 2*count interleaved ones. dst and src must not overlap. */
VQNS_API void rk_dsp_mono_to_stereo(int16_t* dst, const int16_t* src, int16_t count);

/* Separates `frames` interleaved pairs into left[frames] and right[frames]. */
VQNS_API void rk_dsp_stereo_split(int16_t* left, int16_t* right, const int16_t* interleaved, int16_t frames);

/* Joins left[frames] and right[frames] into `frames` interleaved pairs. */
VQNS_API void rk_dsp_stereo_mux(int16_t* interleaved, const int16_t* left, const int16_t* right,
                                int16_t frames);

#endif
