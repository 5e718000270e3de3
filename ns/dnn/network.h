#ifndef NETWORK_H
#define NETWORK_H

#include "vq_ns_kernels.h"
#include "vq_ns_network.h"

/* One frame of 257 normalised complex bins in, a 31 x 64 map out. Counts the frame in net->warm_up: the first
 * call only fills the history, the second computes layer 0 alone; `out` is written from the third on. Returns
 * the number of rows, 31, in every case. */
int32_t network_encode(vq_ns_network* net, const vq_ns_kernel_table* kernels, const float* in, float* out,
                       int32_t bins);

/* The four recurrent stages over a 31 x 64 map; out may be in. */
void network_separate(vq_ns_network* net, const vq_ns_kernel_table* kernels, const float* in, float* out);

/* Map to mask, mask onto the spectrum (re, im) of 257 bins: 514 floats to out. `in` is changed. */
void network_decode(vq_ns_network* net, const vq_ns_kernel_table* kernels, float* in, const float* re,
                    const float* im, float* out, int32_t rows);

#endif
