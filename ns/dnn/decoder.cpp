#include <cstring>

#include "network.h"
#include "vq_ns_model.h"

void network_decode(vq_ns_network* net, const vq_ns_kernel_table* k, float* in, const float* re,
                    const float* im, float* out, int32_t rows) {
    const float* const* w = decoder_weights;
    k->add(in, net->output_skip, VQ_NS_MAP2);

    k->mclear(net->decoder_layer0, VQ_NS_MAP1);
    k->l6(in, w[0], w[1], net->decoder_layer0, 64, 48, static_cast<int16_t>(rows), 63);
    k->nm1(net->decoder_layer0, w[2], w[3], w[4], 63, 48);
    k->add(net->decoder_layer0, net->layer1_skip, VQ_NS_MAP1);

    float* layer1_carry = net->decoder_layer1 + VQ_NS_MAP0;
    k->cpy(layer1_carry, net->decoder_layer1, VQ_NS_MAP0);
    k->mclear(layer1_carry, VQ_NS_MAP0);
    k->l7(net->decoder_layer0, w[5], w[6], net->decoder_layer1, 48, 32, 63, 127);
    k->nm1(net->decoder_layer1, w[7], w[8], w[9], 127, 32);
    /* The skip of the frame before: the mask trails the newest frame by two, and this is the frame between.
     */
    k->add(net->decoder_layer1, net->layer0_history, VQ_NS_MAP0);

    float* mask_carry = net->mask + VQ_NS_FRAME_FLOATS;
    k->cpy_dpc(mask_carry, net->mask, VQ_NS_FRAME_FLOATS);
    std::memset(mask_carry, 0, VQ_NS_FRAME_FLOATS * sizeof *mask_carry);
    k->l8(net->decoder_layer1, w[10], w[11], net->mask, 32, 2, 127, VQ_NS_BINS);
    k->l9(re, im, net->mask, out, VQ_NS_BINS);
}
