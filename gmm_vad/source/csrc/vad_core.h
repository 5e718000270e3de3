/* vad_core.h - the decision core of the voice-activity detector.
 *
 * The entries of gmm_vad.h check the instance, the rate and the length before they come here; nothing is
 * refused here but frames of more than 30 ms, which stop the program.
 */
#ifndef VAD_CORE_H
#define VAD_CORE_H

#include "vad_instance.h"

/* The initial state, in mode 0. 0, or -1 for a null instance. */
VQNS_API int32_t TarvikGmmVad_InitCore(VadInstT* instance);

/* Copies a mode's thresholds. 0, or -1 for a mode outside 0 to 3 with the instance unchanged. */
VQNS_API int32_t TarvikGmmVad_set_mode_core(VadInstT* instance, int32_t mode);

/* Classify a frame of 10, 20 or 30 ms at 8, 16, 32 or 48 kHz, `length` samples: 0 noise, 1 speech, 2 + n the
 * n-th last frame of hangover. At 48 kHz the first 10 ms are analysed, once for each whole 10 ms. */
VQNS_API int32_t TarvikGmmVad_CalcVad8khz(VadInstT* instance, const int16_t* frame, size_t length);
VQNS_API int32_t TarvikGmmVad_CalcVad16khz(VadInstT* instance, const int16_t* frame, size_t length);
VQNS_API int32_t TarvikGmmVad_CalcVad32khz(VadInstT* instance, const int16_t* frame, size_t length);
VQNS_API int32_t TarvikGmmVad_CalcVad48khz(VadInstT* instance, const int16_t* frame, size_t length);

/* exp(-(x - m)^2 / (2 s^2)) / s in Q20 for x = `input` in Q4, m = `mean` and s = `std_deviation` in Q7; 0 far
 * from the mean. Writes (x - m) / s^2 in Q11 to *delta. This holds while *delta and 1 / s^2 in Q14 fit in 16
 * bits, as with the detector's own values they always do; beyond, both wrap and the result is of no use. */
VQNS_API int32_t TarvikGmmVad_GaussianProbability(int16_t input, int16_t mean, int16_t std_deviation,
                                                  int16_t* delta);

#endif
