#include "network.h"
#include "vq_ns_model.h"

namespace {

void convolve(const vq_ns_kernel_table* k, vq_ns_convolution_fn* layer, const float* const* weights,
              const float* in, float* out, int16_t ch_in, int16_t ch_out, int16_t bins_in, int16_t bins_out) {
    layer(in, weights[0], weights[1], out, ch_in, ch_out, bins_in, bins_out);
    k->nm1(out, weights[2], weights[3], weights[4], bins_out, ch_out);
}

}  // namespace

int32_t network_encode(vq_ns_network* net, const vq_ns_kernel_table* k, const float* in, float* out,
                       int32_t bins) {
    const int16_t frame = static_cast<int16_t>(2 * bins);
    k->cpy_dpc(net->input_history + frame, net->input_history, frame);
    k->cpy_dpc(in, net->input_history + frame, frame);
    if (net->warm_up < INT16_MAX) ++net->warm_up;
    if (net->warm_up < 2) return VQ_NS_MAP_ROWS;

    float* current = net->layer0_history + VQ_NS_MAP0;
    convolve(k, k->l1, encoder_weights, net->input_history, net->work, 2, 32, static_cast<int16_t>(bins),
             127);
    k->cpy(current, net->layer0_history, VQ_NS_MAP0);
    k->cpy(net->work, current, VQ_NS_MAP0);
    if (net->warm_up < 3) return VQ_NS_MAP_ROWS;

    convolve(k, k->l2, encoder_weights + 5, net->layer0_history, net->work, 32, 48, 127, 63);
    k->cpy(net->work, net->layer1_skip, VQ_NS_MAP1);
    convolve(k, k->l3, encoder_weights + 10, net->work, out, 48, 64, 63, VQ_NS_MAP_ROWS);
    k->cpy(out, net->output_skip, VQ_NS_MAP2);
    return VQ_NS_MAP_ROWS;
}
