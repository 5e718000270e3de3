/* vq_ns_pipeline.h - the engine below the five entries: reset, block, hop, network. For hosts that level
 * speech themselves (vq_ns_reset and vq_ns_proc) and for tests. Units as in vq_ns.h; no pointer may be null.
 */
#ifndef VQ_NS_PIPELINE_H
#define VQ_NS_PIPELINE_H

#include "vq_ns.h"

/* Clears the whole record, probes the processor, fills the kernel table, builds the FFT tables and sets up
 * rate converters and band filters. Allocates nothing. Always returns 0; with a rate outside the eight the
 * processing functions will return -1. The gain stage is not set up: vq_ns_process_tenms returns -1, and
 * vq_ns_process as soon as a piece is complete. */
VQNS_API int32_t vq_ns_reset(vq_ns_data* instance, int32_t input_rate, int32_t output_rate);

/* One block of up to 100 ms (else -1) without the gain stage. Returns the number of samples written: 0, or
 * the count due for this block, at most count * output_rate / input_rate + 1. A count below 1 returns 0. A
 * block shorter than 1 ms is dropped when the input is converted. */
VQNS_API int32_t vq_ns_proc(vq_ns_data* instance, const int16_t* input, int16_t* output, int32_t count);

/* One hop of 160 samples at 16 kHz (-1 for any other count). Returns 160 when a hop was written, 0 for the
 * first four. */
VQNS_API int32_t vq_ns_dnn_proc(vq_ns_data* instance, const int16_t* hop, int16_t* out, int32_t count);

/* The same with float output, full scale 1. */
VQNS_API int32_t vq_ns_dpcrn_proc(vq_ns_data* instance, const int16_t* hop, float* out, int32_t count);

/* The network's three parts on the instance's state and kernels; vq_ns_network.h names the shapes.
 * Encoder: 257 `bins` (else -1) of interleaved complex values to a 31 x 64 map; returns 31; writes out from
 * the third call on. Separator: map to map, in place or not. Decoder: map of 31 `rows` (else nothing is done;
 * changed) to mask, applied to the spectrum history's slot decoder_slot, which it moves on; 257 interleaved
 * complex values to out. */
VQNS_API int32_t vq_ns_dpcrn_encoder(vq_ns_data* instance, const float* in, float* out, int32_t bins);
VQNS_API void vq_ns_dpcrn_sep(vq_ns_data* instance, const float* in, float* out);
VQNS_API void vq_ns_dpcrn_decoder(vq_ns_data* instance, float* in, float* out, int32_t rows);

#endif
