#include "network.h"
#include "vq_ns_model.h"

namespace {

struct Stage {
    const float *input_weights, *recurrent_weights, *biases, *dense, *dense_bias, *scale, *shift;
};

Stage stage_weights(int s) {
    const float* const* w = sep_weights + 7 * s;
    return {w[0], w[1], w[2], w[3], w[4], w[5], w[6]};
}

}  // namespace

void network_separate(vq_ns_network* net, const vq_ns_kernel_table* k, const float* in, float* out) {
    if (out != in) k->cpy(in, out, VQ_NS_MAP2);
    for (int s = 0; s < 4; ++s) {
        const Stage w = stage_weights(s);
        float* state = net->recurrent_state[s];
        float* dense = net->work;
        /* Even stages run along frequency, from zero in every frame; odd ones along time, a state a row. */
        const bool along_time = s % 2 == 1;
        k->l4(out, net->recurrent_output, state, w.input_weights, w.recurrent_weights, w.biases,
              VQ_NS_MAP_ROWS, VQ_NS_MAP_CHANNELS, along_time ? VQ_NS_MAP_CHANNELS : 0);
        if (!along_time) k->mclear(state, VQ_NS_MAP_CHANNELS);
        k->l5(net->recurrent_output, w.dense, w.dense_bias, dense, VQ_NS_MAP_ROWS, VQ_NS_MAP_CHANNELS);
        k->nm0(dense, w.scale, w.shift, dense, VQ_NS_MAP2, VQ_NS_MAP2);
        k->add(out, dense, VQ_NS_MAP2);
    }
}
