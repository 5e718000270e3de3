/* vad_sp.h - the detector's minimum tracker and its 2:1 rate reduction. */
#ifndef VAD_SP_H
#define VAD_SP_H

#include "vad_instance.h"

/* Enters a feature (Q4 dB) into the list of the 16 smallest of some 100 frames of its channel, 0 to 5 (what a
 * full list has turned away does not come back when others leave), and returns the smoothed minimum (Q4 dB),
 * which falls fast and rises slowly. Any other channel stops the program with an assertion in every build
 * type. */
VQNS_API int16_t TarvikGmmVad_FindMinimum(VadInstT* instance, int16_t feature, int32_t channel);

/* length samples in, length / 2 out at half the rate. state: 2 words, zero at first. `out` may be `in`. */
VQNS_API void TarvikGmmVad_Downsampling(const int16_t* in, int16_t* out, int32_t* state, size_t length);

#endif
