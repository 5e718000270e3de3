/* vq_ns_network.h - what the network keeps in an instance: working maps, histories, carries, recurrent
 * states.
 *
 * Shapes are bins x channels, channels fastest. Arrays handed to kernels that work in blocks of eight are
 * multiples of eight floats long. All zero is the initial state. When the record starts on a 64-byte
 * boundary, so does every map in it.
 */
#ifndef VQ_NS_NETWORK_H
#define VQ_NS_NETWORK_H

#include "vqns_api.h"

enum {
    VQ_NS_BINS = 257,
    VQ_NS_FRAME_FLOATS = 2 * 257, /* real and imaginary parts, interleaved */
    VQ_NS_MAP_ROWS = 31,          /* the separator's map: 31 x 64 */
    VQ_NS_MAP_CHANNELS = 64,
    VQ_NS_MAP0 = 127 * 32, /* first encoder layer, last hidden decoder layer */
    VQ_NS_MAP1 = 63 * 48,  /* second encoder layer, first decoder layer */
    VQ_NS_MAP2 = 31 * 64,  /* encoder output, separator */
    VQ_NS_SPECTRUM_SLOTS = 5
};

typedef struct vq_ns_network {
    float output[VQ_NS_MAP2];             /* encoder output; separated in place */
    float work[VQ_NS_MAP0];               /* scratch of encoder and separator */
    float layer0_history[2 * VQ_NS_MAP0]; /* encoder layer 0: previous frame, current frame */
    float layer1_skip[VQ_NS_MAP1];        /* encoder layer 1, for the decoder */
    float output_skip[VQ_NS_MAP2];        /* encoder output, for the decoder */
    float recurrent_state[4][VQ_NS_MAP2]; /* by stage; 0 and 2 use the first row alone */
    float recurrent_output[VQ_NS_MAP2];   /* scratch of the separator */
    float decoder_layer0[VQ_NS_MAP1];     /* scratch of the decoder */
    float decoder_layer1[2 * VQ_NS_MAP0]; /* decoder layer 1: current frame, carry into the next */
    float input_history[1040]; /* normalised spectrum: previous frame, current frame, 2 x 514 used */
    float mask[1040];          /* complex mask: current frame, carry into the next, 2 x 514 used */
    int16_t warm_up;           /* frames encoded; the pipeline counts up to 3 */
} vq_ns_network;

#endif
