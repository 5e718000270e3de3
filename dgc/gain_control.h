/* gain_control.h - slow automatic gain for 16-bit speech.
 *
 * Fed a stream block by block, the gain control returns one gain for each block. It works on a 16 kHz
 * copy of the signal in frames of 10 ms, asks the voice-activity detector whether a frame is speech, and
 * re-estimates the gain on speech frames only; a block whose last frame is not speech, or that completes
 * no frame, gets unity at once. The estimate is a feedback loop: it measures the power after its own gain,
 * so in the long run a level difference in decibels at the input is halved at the output.
 *
 * Gains are Q15: 32767 is unity (a sample scaled by it is (x 32767) >> 15). Scaling is one rule everywhere:
 * the product x gain in 32 bits, wrapping, shifted right by 15 rounding down, limited to -32767..32767. At a
 * gain g the products of samples beyond 2^31 / g wrap (above 65536, a factor of 2): after quiet speech a
 * sudden loud sound can come out wrong until the peak guard has lowered the gain.
 *
 * Rates. The detector always receives 160 samples at 16 kHz; tell it so with 16000 in its configuration,
 * whatever the rate of the stream. Told 8000 it runs its 8 kHz path on them, told anything else it refuses
 * each frame, prints "failed in TarvikGmmVad_Process" for each, and the gain stays at unity. (The
 * suppressor's own gain stage is told the output rate.)
 *
 * Ownership. The caller provides the record; initialisation allocates a converter (if the rate is not
 * 16000 Hz) and a detector, processing allocates nothing, rk_dsp_dgc_kwenh_deinit releases both.
 * Initialising clears the record without releasing what it held: a host that initialises one record
 * again and again, directly or through the engine, calls rk_dsp_dgc_kwenh_deinit on it in between.
 *
 * Threads. One thread at a time for a record. `get_op1` and the flags of the fixed-point operators are
 * shared by the whole process; no gain depends on them. The first initialisation builds a table for the
 * process (see fixedpoint_init), so initialise one record at a time.
 *
 *     rk_voip_dsp_dgc_kwenh_data_t dgc;
 *     const int32_t vad_config[4] = {2, 16000, 0, 0};
 *     if (rk_dsp_dgc_kwenh_init(&dgc, 31000, 16000, 8, vad_config) != 0) return -1;
 *     rk_dsp_dgc_kwenh_api_process(&dgc, pcm, 160, 1);   (for every 10 ms)
 *     rk_dsp_dgc_kwenh_deinit(&dgc);
 */
#ifndef VQNS_GAIN_CONTROL_H
#define VQNS_GAIN_CONTROL_H

#include "gmm_vad.h"
#include "rate_converter.h"
#include "vqns_api.h"

enum {
    RK_DSP_DGC_KWENH_FRAME = 160,    /* samples of a frame: 10 ms at 16 kHz */
    RK_DSP_DGC_KWENH_POWERS = 10,    /* speech frames over which the loudest counts */
    RK_DSP_DGC_KWENH_UNITY = 32767,  /* Q15 */
    RK_DSP_DGC_KWENH_SRC_WORK = 8672 /* samples of work buffer behind the converter's record */
};

/* Commands of rk_dsp_dgc_kwenh_control. */
enum { RK_DSP_DGC_KWENH_NONE = 8003, RK_DSP_DGC_KWENH_PAUSE = 8004, RK_DSP_DGC_KWENH_RESUME = 8005 };

/* The record. Public so that a host can reserve and inspect it; only the functions below write it. */
typedef struct rk_voip_dsp_dgc_kwenh_data_t {
    int16_t target_level;  /* amplitude aimed at */
    int16_t peak_limit;    /* 32000: largest magnitude that the peak guard lets a gained sample reach */
    int16_t pending_count; /* samples held in `pending`, 0..159 */
    int16_t resample_on;   /* 1: the rate is not 16000 Hz and a converter is in use */
    int16_t paused;        /* 1 after the pause command; changes no processing */
    int16_t pending[RK_DSP_DGC_KWENH_FRAME];      /* the frame being filled, at 16 kHz */
    rk_voip_dsp_src_inst_t* src_handle;           /* owned; to 16 kHz */
    TarvikGmmVad_api_t* vad_handle;               /* owned */
    int32_t gain_smooth;                          /* gain_track smoothed, guarded and limited, Q15 */
    int32_t gain_track;                           /* follows the level estimate, Q15 */
    int32_t gain_speech;                          /* returned on speech, Q15 */
    int32_t gain_idle;                            /* returned otherwise: unity */
    int32_t gain_applied;                         /* returned by the last call */
    int32_t target_power;                         /* 2 target_level^2; for inspection */
    int32_t frame_power[RK_DSP_DGC_KWENH_POWERS]; /* ring of speech-frame powers; 0: not yet used */
    int16_t power_index;                          /* next place in frame_power, 0..10; 10 means 0 */
    int32_t power_avg;                            /* slow average of frame_power[0]; for inspection */
    int32_t gain_max;                             /* upper limit, Q15 */
} rk_voip_dsp_dgc_kwenh_data_t;

/* Initialises a record, whatever it held before.
 * target_level: amplitude aimed at, 1..32767 (31000 is the engine's). The gain
 * settles where the speech, gained twice, has an rms of target_level^2 / 2^17 (7332 for 31000).
 * sample_rate: Hz of the samples to come. At a rate that the converter does not know the gain stays unity.
 * max_gain: largest gain as a whole factor, 1 or more (8 is +18 dB; 0 mutes speech, less inverts it). The
 * smallest gain is 144/32768.
 * vad_config: four words for the detector's wrapper, copied: mode 0..3, rate, hangover frames, onset frames.
 * Returns 0. Returns -1 if the detector cannot be set up (a line "TarvikGmmVad_api_Init fail" is then on
 * standard output) or if memory is short; every function may still be used on the record, the gain stays
 * unity, and rk_dsp_dgc_kwenh_deinit releases what had been allocated. */
VQNS_API int32_t rk_dsp_dgc_kwenh_init(rk_voip_dsp_dgc_kwenh_data_t* record, int16_t target_level,
                                       int32_t sample_rate, int16_t max_gain, const int32_t* vad_config);

/* Analyses `count` mono samples and returns the gain, Q15, to apply to exactly these samples, which are not
 * changed. Any count is taken in full, working through it in blocks of what the converter has room for; a
 * count below 1 adds nothing and returns unity. */
VQNS_API int32_t rk_dsp_dgc_kwenh_process(rk_voip_dsp_dgc_kwenh_data_t* record, const int16_t* samples,
                                          int16_t count);

/* Analyses the first channel of `frames` x `channels` interleaved samples and scales all of them in
 * place by the gain. With frames or channels below 1 the buffer is not touched; `frames`, if above 0, are
 * then taken as silence. Returns 0; the gain is in gain_applied. */
VQNS_API int32_t rk_dsp_dgc_kwenh_api_process(rk_voip_dsp_dgc_kwenh_data_t* record, int16_t* buffer,
                                              int16_t frames, int16_t channels);

/* Pauses and resumes: sets `paused` and `get_op1` and prints "DGC1 PAUSE " or "DGC1 RESUME ". Both are for
 * the host to read; the gain goes on being estimated. Other commands are ignored. */
VQNS_API void rk_dsp_dgc_kwenh_control(rk_voip_dsp_dgc_kwenh_data_t* record, int32_t command);

/* Releases the converter and the detector and returns 0. May be called again, after a failed
 * initialisation, and on a record of zeros. */
VQNS_API int32_t rk_dsp_dgc_kwenh_deinit(rk_voip_dsp_dgc_kwenh_data_t* record);

/* floor(sqrt(x)), x taken as unsigned. */
VQNS_API int32_t rk_dsp_dgc_kwenh_sqrt(int32_t x);

/* For the host to read: 1 after a successful initialisation or a resume of any record, 0 after a pause; 0 at
 * load. */
VQNS_DATA int32_t get_op1;

/* 1/sqrt(x) in Q15 for x = 1 + i/16. */
VQNS_DATA const int16_t rk_voip_dsp_dgc_kwenh_tabsqr[49];

#endif
