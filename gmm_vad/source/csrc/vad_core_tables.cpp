#include "vad_core_tables.h"

// clang-format off
const int16_t kNoiseDataMeans[12] = {6738, 4892, 7065, 6715, 6771, 3369,
                                     7646, 3863, 7820, 7266, 5020, 4362};
const int16_t kNoiseDataStds[12] = {378, 1064, 493, 582, 688, 593,
                                    474,  697, 475, 688, 421, 455};
const int16_t kNoiseDataWeights[12] = {34, 62, 72, 66, 53,  25,
                                       94, 66, 56, 62, 75, 103};
const int16_t kSpeechDataMeans[12] = {8306, 10085, 10078, 11823, 11843, 6309,
                                      9473,  9571, 10879,  7581,  8180, 7483};
const int16_t kSpeechDataStds[12] = {555, 505, 567,  524,  585, 1231,
                                     509, 828, 492, 1540, 1079,  850};
const int16_t kSpeechDataWeights[12] = {48, 82, 45, 87, 50, 47,
                                        80, 46, 83, 41, 78, 81};

const int16_t kMaximumNoise[6] = {9216, 9088, 8960, 8832, 8704, 8576};
const int16_t kMaximumSpeech[6] = {11392, 11392, 11520, 11520, 11520, 11520};
const int16_t kMinimumDifference[6] = {544, 544, 576, 576, 576, 576};
const int16_t kMinimumMean[2] = {640, 768};
const int16_t kSpectrumWeight[6] = {6, 8, 10, 12, 14, 16};

const int16_t kOverHangMax1Q[3] = {8, 4, 3};
const int16_t kOverHangMax2Q[3] = {14, 7, 5};
const int16_t kLocalThresholdQ[3] = {24, 21, 24};
const int16_t kGlobalThresholdQ[3] = {57, 48, 57};

const int16_t kOverHangMax1LBR[3] = {8, 4, 3};
const int16_t kOverHangMax2LBR[3] = {14, 7, 5};
const int16_t kLocalThresholdLBR[3] = {37, 32, 37};
const int16_t kGlobalThresholdLBR[3] = {100, 80, 100};

const int16_t kOverHangMax1AGG[3] = {6, 3, 2};
const int16_t kOverHangMax2AGG[3] = {9, 5, 3};
const int16_t kLocalThresholdAGG[3] = {82, 78, 82};
const int16_t kGlobalThresholdAGG[3] = {285, 260, 285};

const int16_t kOverHangMax1VAG[3] = {6, 3, 2};
const int16_t kOverHangMax2VAG[3] = {9, 5, 3};
const int16_t kLocalThresholdVAG[3] = {94, 94, 94};
const int16_t kGlobalThresholdVAG[3] = {1100, 1050, 1100};
// clang-format on
