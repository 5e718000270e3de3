/* vad_filterbank.h - the detector's features: log energies in six bands of an 8 kHz signal. */
#ifndef VAD_FILTERBANK_H
#define VAD_FILTERBANK_H

#include "vad_instance.h"

/* Writes six features in Q4 dB: 10 log10 of a band's energy plus an offset of 23, 23, 17, 11, 11, 11 dB. The
 * bands are 85-250, 250-500, 500-1000 and 1000-2000 Hz; features 4 and 5 are the low and the high output of a
 * split of 2000-4000 Hz, which its decimation has mirrored: a sound at 2000-3000 Hz shows in feature 5, one
 * at 3000-4000 Hz in feature 4. Returns a coarse total energy that only tells silence (10 and less) from
 * sound.
 *
 * frame: 80, 160 or 240 samples at 8 kHz. More than 240, or fewer than 16, stop the program with an assertion
 * in every build type. */
VQNS_API int16_t TarvikGmmVad_CalculateFeatures(VadInstT* instance, const int16_t* frame, size_t length,
                                                int16_t* features);

#endif
