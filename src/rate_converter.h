/* rate_converter.h - streaming sample-rate conversion between eight rates, 16-bit PCM.
 *
 * A converter is a cascade of one to three stages. A stage is a rational polyphase filter: up by L, low
 * pass, down by M, with its coefficients in a Q15 table and its history kept between calls, so that a
 * stream may be cut into blocks of any size. After N mono samples in, a stage has put out exactly
 * ceil(N*L/M) samples.
 *
 * Rates: 8000, 11025, 16000, 22050, 24000, 32000, 44100 and 48000 Hz, any pair of two different ones.
 * The filters run on one channel. Of a stereo block of two or more frames the left channel is converted
 * (a block of a single frame is averaged); a stereo result is the mono one on both channels.
 *
 * Memory belongs to the caller: a record followed directly by its work buffer, a run of int16_t that
 * reaches to the end of the caller's block (see RK_VOIP_DSP_SRC_RECORD and RK_VOIP_DSP_SRC_BYTES).
 * Nothing is allocated and nothing needs to be released. The record holds no pointer into itself.
 *
 * Threads: one thread at a time for a converter; different converters share only constant tables.
 *
 *     RK_VOIP_DSP_SRC_RECORD(1024) memory;
 *     rk_voip_dsp_src_inst_t* converter = &memory.instance;
 *     if (rk_voip_dsp_src_init(&converter, 44100, 16000, RK_SRC_MONO_TO_MONO, 1) != 0) return -1;
 *     int32_t produced = rk_voip_dsp_src_proc(&converter, in, out, 441);
 */
#ifndef VQNS_RATE_CONVERTER_H
#define VQNS_RATE_CONVERTER_H

#include "vqns_api.h"

/* Layout of one side of a converter. */
enum {
    RK_SRC_MONO = 12,
    RK_SRC_STEREO = 13 /* interleaved left, right */
};

/* Layout codes of rk_voip_dsp_src_init. */
enum {
    RK_SRC_STEREO_TO_MONO = 1000,
    RK_SRC_MONO_TO_MONO = 1001,
    RK_SRC_STEREO_TO_STEREO = 1002,
    RK_SRC_MONO_TO_STEREO = 1003
};

enum {
    RK_SRC_STAGES = 3,
    RK_SRC_HISTORY = 200 /* two copies of at most 100 taps */
};

/* One stage. Set up by rk_dsp_src_init; the table is constant and not owned. */
typedef struct rk_voip_dsp_src_stdata_t {
    int16_t up;                      /* L; below 1: the stage is absent */
    uint16_t down;                   /* M */
    int16_t taps;                    /* T, taps of one polyphase branch */
    uint16_t phase;                  /* up-sampled positions since the last output */
    int16_t position;                /* in history, of the next sample: the newest is one further on */
    const int16_t* table;            /* L branches of T taps, Q15; null: no filter for (L, M) */
    int16_t history[RK_SRC_HISTORY]; /* circular, T samples and their copy T further on */
} rk_voip_dsp_src_stdata_t;

/* Runs a stage over count mono samples; see rk_dsp_src_proc. */
typedef int32_t (*rk_voip_dsp_src_stage_routine)(rk_voip_dsp_src_stdata_t* stage, const int16_t* in,
                                                 int16_t* out, int32_t count);

/* One converter. The int16_t work buffer starts directly after the record, at (char*)record +
 * sizeof(rk_voip_dsp_src_inst_t). */
typedef struct rk_voip_dsp_src_inst_t {
    uint16_t in_layout;                            /* RK_SRC_MONO or RK_SRC_STEREO */
    uint16_t out_layout;                           /* RK_SRC_MONO or RK_SRC_STEREO */
    rk_voip_dsp_src_stdata_t stage[RK_SRC_STAGES]; /* in cascade order */
    rk_voip_dsp_src_stage_routine routine;         /* null after a refused init: processing does nothing */
} rk_voip_dsp_src_inst_t;

/* Bytes of a record with a work buffer of `samples`, for memory from an allocator. */
#define RK_VOIP_DSP_SRC_BYTES(samples) (sizeof(rk_voip_dsp_src_inst_t) + (size_t)(samples) * sizeof(int16_t))

/* The type of a record with a work buffer of `samples` (a constant), for a variable or a member:
 *     RK_VOIP_DSP_SRC_RECORD(1024) converter;
 * The record's size is a multiple of its alignment, so no padding separates the two. */
#define RK_VOIP_DSP_SRC_RECORD(samples)  \
    struct {                             \
        rk_voip_dsp_src_inst_t instance; \
        int16_t work[samples];           \
    }

/* Sets up, or restarts, the converter in *handle.
 * in_rate, out_rate: Hz. layout: a code above, of which the low 16 bits count; 1001 and 1003 take mono, every
 * other value stereo; 1002 and 1003 give stereo, every other value mono. low_complexity: of its low 16
 * bits, 0 chooses the long filters (20 lobes), anything else the short ones (10 lobes: half the work and half
 * the delay, a wider transition band), and exactly 1 also the shorter of two cascades where there are two.
 * Returns 0, or 1 for equal rates or a rate outside the eight; rk_voip_dsp_src_proc on a refused
 * converter writes nothing and returns 0. The work buffer is left as it was. */
VQNS_API int32_t rk_voip_dsp_src_init(rk_voip_dsp_src_inst_t** handle, uint32_t in_rate, uint32_t out_rate,
                                      uint32_t layout, uint32_t low_complexity);

/* Converts count samples (interleaved ones, twice the frames, when the input is stereo; an odd last
 * sample is dropped) and returns how many samples it wrote, interleaved ones when the output is stereo.
 * A stereo input block is overwritten by its fold to mono. in, out and the work buffer must not overlap.
 *
 * Room. The first stage writes into `out`, the second into the work buffer, the third into `out` again.
 * Let n be the mono samples in (half of count for stereo) and c1, c2, c3 the counts after the stages,
 * each at most the one before times L/M, rounded up; `last` is the count after the last stage.
 *     mono output:    out max(c1, last)      work c2
 *     stereo output:  out max(c1, 2*last)    work max(c2, last)
 * On some routes c1 is more than the count returned: 48000 to 32000 Hz with the long filters writes 2n
 * samples into out and returns 2n/3. RK_VOIP_DSP_SRC_ROOM bounds c1, c2 and c3 of any route. Each of these
 * counts must fit an int32_t: hours of sound go in several calls. */
VQNS_API int32_t rk_voip_dsp_src_proc(rk_voip_dsp_src_inst_t** handle, int16_t* in, int16_t* out,
                                      int32_t count);

/* A bound on the mono samples that any stage of any route puts out for n mono samples in. */
#define RK_VOIP_DSP_SRC_ROOM(n) (6 * (n) + 2)

/* Sets up one stage: up by L, down by M, with the short filters when low_complexity is not 0. Clears its
 * history; the first up-sampled position will produce an output. Returns 1. A pair without a filter
 * leaves the table null; such a stage puts nothing out. */
VQNS_API int32_t rk_dsp_src_init(rk_voip_dsp_src_stdata_t* stage, int16_t up, int16_t down,
                                 int16_t low_complexity);

/* Runs one stage over count mono samples and returns how many it wrote to out, at most
 * ceil(count*L/M). Outputs are truncated towards minus infinity and saturated to 16 bits. in and out must not
 * overlap. The two are one routine: they differ in the table that was chosen when the stage was set up. */
VQNS_API int32_t rk_dsp_src_proc(rk_voip_dsp_src_stdata_t* stage, const int16_t* in, int16_t* out,
                                 int32_t count);
VQNS_API int32_t rk_dsp_src_proc_lc(rk_voip_dsp_src_stdata_t* stage, const int16_t* in, int16_t* out,
                                    int32_t count);

/* The rates by index; 0 marks an unused slot. */
VQNS_DATA const uint32_t rk_voip_dsp_mxr_smpr[10];

/* Routes: code, L1, M1, L2, M2, L3, M3. The code is ten times the index of the input rate plus the index
 * of the output rate, plus 2000 for the shorter cascade of the low-complexity mode. A stage whose L is 0
 * is absent. The first row with a code counts; rows of zeros are unused. */
VQNS_DATA const int16_t rk_voip_dsp_src_info[100][7];

#endif
