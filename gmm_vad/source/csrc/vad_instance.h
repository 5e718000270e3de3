/* vad_instance.h - the record of one voice-activity detector.
 *
 * Published so that hosts can size, save and inspect it; only the detector's functions write to it. It holds
 * no pointers and may be copied. One thread at a time.
 *
 * The model has two classes (noise, speech) of two Gaussians each in every one of six bands of an 8 kHz
 * signal. Arrays over Gaussians and bands are indexed g * 6 + band.
 */
#ifndef VAD_INSTANCE_H
#define VAD_INSTANCE_H

#include "vqns_api.h"

typedef struct VadInstT {
    int32_t decision;            /* last frame: 0 noise, 1 speech, 2 + n the n-th last frame of hangover */
    int32_t down_state[4];       /* 2:1 filters: words 0-1 to 8 kHz, words 2-3 from 32 kHz to 16 kHz */
    int32_t resample_state[40];  /* 48 kHz to 8 kHz */
    int16_t noise_mean[12];      /* Q7 dB */
    int16_t speech_mean[12];     /* Q7 dB */
    int16_t noise_std[12];       /* Q7 dB */
    int16_t speech_std[12];      /* Q7 dB */
    int32_t frame_count;         /* frames loud enough to have updated the model; saturates */
    int16_t hangover;            /* frames of hangover left */
    int16_t speech_run;          /* consecutive speech frames, at most 6 */
    int16_t min_age[96];         /* 6 bands x 16: age in frames of each value below */
    int16_t min_values[96];      /* 6 bands x 16: smallest features of some 100 frames, ascending, Q4 dB */
    int16_t min_mean[6];         /* smoothed minimum of each band, Q4 dB */
    int16_t filter_state[14];    /* 5 upper all-passes, 5 lower; high-pass x[n-1], x[n-2], y[n-1], y[n-2] */
    int16_t hang_short[3];       /* hangover after a short run of speech; 10, 20, 30 ms frames */
    int16_t hang_long[3];        /* hangover after a long run */
    int16_t local_threshold[3];  /* of the likelihood ratio of one band; 10, 20, 30 ms frames */
    int16_t global_threshold[3]; /* of the weighted sum over the bands */
    int32_t init_flag;           /* 42 once initialised, 0 after creation */
} VadInstT;

#endif
