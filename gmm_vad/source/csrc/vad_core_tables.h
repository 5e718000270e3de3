/* vad_core_tables.h - the detector's initial models, bounds and mode thresholds.
 *
 * Twelve entries: index g * 6 + band for Gaussian g. Six entries: by band. Means, standard deviations and
 * bounds are in Q7 dB; weights are in Q7, and the two Gaussians of a class and band add up to about 128.
 */
#ifndef VAD_CORE_TABLES_H
#define VAD_CORE_TABLES_H

#include "vqns_api.h"

VQNS_DATA const int16_t kNoiseDataMeans[12];
VQNS_DATA const int16_t kNoiseDataStds[12];
VQNS_DATA const int16_t kNoiseDataWeights[12];
VQNS_DATA const int16_t kSpeechDataMeans[12];
VQNS_DATA const int16_t kSpeechDataStds[12];
VQNS_DATA const int16_t kSpeechDataWeights[12];

VQNS_DATA const int16_t kMaximumNoise[6];      /* of the weighted noise mean */
VQNS_DATA const int16_t kMaximumSpeech[6];     /* of the weighted speech mean */
VQNS_DATA const int16_t kMinimumDifference[6]; /* between the two, Q5 */
VQNS_DATA const int16_t kMinimumMean[2];       /* of a speech mean, by Gaussian */
VQNS_DATA const int16_t kSpectrumWeight[6];    /* of each band in the global likelihood ratio */

/* By mode (Q: 0, LBR: 1, AGG: 2, VAG: 3), then frame length (10, 20, 30 ms). Local: threshold of four times
 * one band's log2 likelihood ratio. Global: threshold of the weighted sum. OverHangMax1, OverHangMax2:
 * hangover in frames after at most, and after more than, six speech frames in a row. */
VQNS_DATA const int16_t kOverHangMax1Q[3];
VQNS_DATA const int16_t kOverHangMax2Q[3];
VQNS_DATA const int16_t kLocalThresholdQ[3];
VQNS_DATA const int16_t kGlobalThresholdQ[3];

VQNS_DATA const int16_t kOverHangMax1LBR[3];
VQNS_DATA const int16_t kOverHangMax2LBR[3];
VQNS_DATA const int16_t kLocalThresholdLBR[3];
VQNS_DATA const int16_t kGlobalThresholdLBR[3];

VQNS_DATA const int16_t kOverHangMax1AGG[3];
VQNS_DATA const int16_t kOverHangMax2AGG[3];
VQNS_DATA const int16_t kLocalThresholdAGG[3];
VQNS_DATA const int16_t kGlobalThresholdAGG[3];

VQNS_DATA const int16_t kOverHangMax1VAG[3];
VQNS_DATA const int16_t kOverHangMax2VAG[3];
VQNS_DATA const int16_t kLocalThresholdVAG[3];
VQNS_DATA const int16_t kGlobalThresholdVAG[3];

#endif
