/* vq_ns.h - the noise suppressor: one instance per mono stream of 16-bit PCM.
 *
 *     vq_ns_data* ns = aligned_alloc(64, (vq_ns_data_size() + 63) / 64 * 64);
 *     if (vq_ns_init(ns, 16000, 16000) != 0) ...
 *     for each 10 ms:
 *         if (vq_ns_process(ns, in, out, 160) == 160) play(out, 160);
 *         else play silence;                       (the first five calls: the delay line fills)
 *     rk_dsp_dgc_kwenh_deinit(&ns->gain_control);
 *     vq_ns_deinit(ns);
 *     free(ns);
 *
 * Rates: 8000, 11025, 16000, 22050, 24000, 32000, 44100 and 48000 Hz on either side. The suppressor itself
 * runs at 16000 Hz; what lies above 8 kHz is not in the output. The gain stage levels speech at an output
 * rate of 8000 or 16000 Hz; at any other its detector refuses every frame, a line is printed for each, and
 * the gain stays at unity. Hosts that want levelling there run the suppressor with 16000 Hz output and
 * convert afterwards; hosts that level speech themselves use vq_ns_reset and vq_ns_proc (vq_ns_pipeline.h)
 * alone.
 *
 * Memory: the host owns the instance and keeps it where it is between init and its end, since it holds
 * pointers into itself. Alignment as for pointers will do; a 64-byte boundary is fastest. Nothing is
 * allocated but what the gain stage needs (its detector and, unless the output rate is 16000 Hz, a rate
 * converter), in vq_ns_init: vq_ns_deinit leaves these blocks as they are, so release them with
 * rk_dsp_dgc_kwenh_deinit(&instance->gain_control) before initialising again or letting go of the memory. The
 * processing entries never allocate, lock or make a system call, except for the failure lines named below.
 *
 * Threads: one thread at a time for an instance. Instances are independent, but initialise them one at a
 * time: initialisation builds a process-wide table and sets process-wide flags.
 *
 * Processor: x86-64 with AVX. With AVX2 fused multiply-add is taken to be there too.
 *
 * Results: a count of samples, 0, or -1 for failure. vq_ns_init and the processing entries return -1
 * for a null pointer, and the latter on an instance whose rates could not be served. Beside the gain stage's
 * lines, two are printed on standard output: "Unable to initialize DGC " and "Data Unable to Process by
 * VQNS".
 */
#ifndef VQ_NS_H
#define VQ_NS_H

#include "gain_control.h"
#include "rate_converter.h"
#include "vq_ns_fft.h"
#include "vq_ns_kernels.h"
#include "vq_ns_network.h"
#include "vq_ns_qmf.h"

enum {
    VQ_NS_RATE = 16000, /* the suppressor's own rate, Hz */
    VQ_NS_HOP = 160,    /* 10 ms */
    VQ_NS_FRAME = 480,  /* 30 ms */
    VQ_NS_PIECE = 480,  /* longest 10 ms piece: 48000 Hz */
    VQ_NS_BLOCK = 5376, /* longest block at any rate: 100 ms and a hop at 48000 Hz, and converter room */
    VQ_NS_PENDING = 2 * VQ_NS_BLOCK,
    VQ_NS_QUEUE = 10240,  /* two blocks of 100 ms at 48000 Hz and a piece */
    VQ_NS_BANDS_MAX = 480 /* longest block per band of vq_ns_sprocess */
};

/* The instance. Published for its size; hosts touch no member but gain_control. Spectrum arrays hold 257
 * bins; the rest of them stays zero. */
typedef struct vq_ns_data {
    float spectrum_re[265]; /* current frame */
    float spectrum_im[265];
    float frame_work[530];     /* features (2 x 257, padded), masked spectrum, then time frame */
    float history_re[5 * 265]; /* ring of five frames, a slot every 257 */
    float history_im[5 * 265];
    float alignment_gap[2]; /* puts the network's maps on 64-byte boundaries where the record is */
    vq_ns_network network;
    vq_ns_qmf_state qmf;
    RK_VOIP_DSP_SRC_RECORD(1024) input_converter;
    RK_VOIP_DSP_SRC_RECORD(1024) output_converter;
    rk_voip_dsp_dgc_kwenh_data_t gain_control;
    int16_t frame_carry[VQ_NS_HOP];      /* 16 kHz samples short of a hop */
    float analysis_history[VQ_NS_FRAME]; /* last 480 samples, full scale 1 */
    float windowed_frame[512];           /* window times history; the last 32 stay 0 */
    int16_t remainder[VQ_NS_PIECE];      /* of vq_ns_process: input short of a piece */
    int16_t queue[VQ_NS_QUEUE];          /* of vq_ns_process: output short of a block */
    float overlap_tail[320];             /* of the synthesised frame before */
    float network_output[VQ_NS_HOP];     /* one enhanced hop, full scale 1 */
    rk_voip_dsp_src_inst_t* input_converter_pointer;
    rk_voip_dsp_src_inst_t* output_converter_pointer;
    rk_voip_dsp_dgc_kwenh_data_t* gain_control_pointer;
    int32_t hop_counter;             /* saturates at 32767 */
    int32_t input_rate, output_rate; /* Hz */
    int16_t carry_count;
    int16_t analysis_count;
    int16_t history_slot; /* next to be written, 0..4 */
    int16_t decoder_slot; /* next to be masked, 0..4: two behind */
    int16_t remainder_count, queue_count;
    int16_t input_converter_on, output_converter_on;
    int16_t call_duration;          /* of the last block, whole ms; chunk length of the input converter */
    int16_t pending[VQ_NS_PENDING]; /* output not yet delivered */
    float output_per_ms;            /* output samples a millisecond */
    float output_fraction;          /* of the running count of output samples, [0, 1) */
    int16_t output_started;
    int16_t pending_count;
    int16_t input_16k[VQ_NS_BLOCK];  /* the block's input; then the output converter's result */
    int16_t output_16k[VQ_NS_BLOCK]; /* the block's enhanced samples, 16 kHz, then at the output rate */
    int16_t hop[VQ_NS_HOP];
    vq_ns_fft_data* fft_pointer;
    vq_ns_fft_data fft;
    int32_t has_avx, has_avx2;
    int32_t kernel_level; /* VQ_NS_LEVEL_* */
    vq_ns_kernel_table kernels;
} vq_ns_data;

/* Size and alignment of an instance in bytes, for hosts in other languages. */
VQNS_API size_t vq_ns_data_size(void);
VQNS_API size_t vq_ns_data_alignment(void);

/* Brings an instance, new or in use, to its initial state for these rates in Hz. Returns 0; -1 for a rate
 * outside the eight (nothing is printed) or when the gain stage cannot allocate (its line is printed). */
VQNS_API int32_t vq_ns_init(vq_ns_data* instance, int32_t input_rate, int32_t output_rate);

/* One block, normally 10 ms, up to 100 ms, through suppressor and gain stage. Returns the number of samples
 * written: count * output_rate / input_rate, rounded down with the fraction carried on (give output room for
 * one more); or 0 while the delay line fills and, where the rates differ and calls are not whole
 * milliseconds, for a call once in hours or days; -1 for a longer block. A count below 1 returns 0. Output
 * never holds -32768. */
VQNS_API int32_t vq_ns_process_tenms(vq_ns_data* instance, const int16_t* input, int16_t* output,
                                     int32_t count);

/* A block of any length up to 100 ms at least, for equal rates on both sides. Cuts it into 10 ms pieces,
 * holds what is left over, and hands output back in blocks of exactly count. Returns count when it wrote
 * count samples; 0 when fewer are waiting; count when it is below 1, with nothing done; -1 after printing
 * "Data Unable to Process by VQNS" when a piece fails or, with nothing done, when the output queue (10240
 * samples) has no room for what the block gives. output may be input. With unequal rates the queue fills or
 * starves. Input rates below 100 Hz: -1. */
VQNS_API int32_t vq_ns_process(vq_ns_data* instance, const int16_t* input, int16_t* output, int32_t count);

/* A signal that comes as two half-rate bands (vq_ns_qmf.h), count samples each, at most 480 (else -1, nothing
 * touched) and 100 ms. The bands are merged, denoised without the gain stage and split again. Returns samples
 * per band, up to count * output_rate / input_rate + 1, or 0 while the delay line fills. Drive an instance
 * through this entry or the others, not both. */
VQNS_API int32_t vq_ns_sprocess(vq_ns_data* instance, const int16_t* low_in, const int16_t* high_in,
                                int16_t* low_out, int16_t* high_out, int32_t count);

/* Ends the use of an instance. Releases nothing (see Memory above). Returns 0. */
VQNS_API int32_t vq_ns_deinit(vq_ns_data* instance);
/* What vq_ns_deinit calls; does nothing, returns 0. */
VQNS_API int32_t vq_ns_destry(vq_ns_data* instance);

/* The delay of the stream that a host hears when it plays silence for every call that returns 0: from a
 * sample fed to the same sample delivered, in output samples, rounded, for calls of 10 ms (input_rate / 100
 * samples). It covers vq_ns_process_tenms, vq_ns_process and vq_ns_proc; vq_ns_sprocess adds the 22 samples
 * of the band filters (at the rate of the merged signal). Calls of other lengths are later: a whole call
 * of output is held back, so that vq_ns_proc in calls of 100 ms begins after 200 ms. -1 for a null instance
 * or one whose rates could not be served. */
VQNS_API int32_t vq_ns_delay(const vq_ns_data* instance);

/* Version of the library, "major.minor.patch". Static storage. */
VQNS_API const char* vqns_version(void);

#endif
