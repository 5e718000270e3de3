#include <cstring>

#include "blocks.h"
#include "vq_ns_kernels.h"

namespace {

enum { kGates = 3 };

/* Eight units of one row. Weights: per input, eight of gate z, eight of r, eight of n. Biases: per gate,
 * eight for the input product, eight for the recurrent one. */
void step_block(const float* x, const float* h, const float* h_block, const float* wi, const float* wh,
                const float* b, float* out, int32_t units) {
    Block z = load(b), r = load(b + 16), n = load(b + 32);
    Block recurrent_z = load(b + 8), recurrent_r = load(b + 24), recurrent_n = load(b + 40);
    for (int32_t i = 0; i < units; ++i, wi += kGates * 8, wh += kGates * 8) {
        add_scaled(z, x[i], wi);
        add_scaled(r, x[i], wi + 8);
        add_scaled(n, x[i], wi + 16);
        add_scaled(recurrent_z, h[i], wh);
        add_scaled(recurrent_r, h[i], wh + 8);
        add_scaled(recurrent_n, h[i], wh + 16);
    }
    for (int u = 0; u < 8; ++u) {
        const float update = vq_ns_sigmoid_approx(z.lane[u] + recurrent_z.lane[u]);
        const float reset = vq_ns_sigmoid_approx(r.lane[u] + recurrent_r.lane[u]);
        const float candidate = vq_ns_tansig_approx(n.lane[u] + reset * recurrent_n.lane[u]);
        out[u] = update * h_block[u] + (1.0f - update) * candidate;
    }
}

}  // namespace

void vq_ns_l4(const float* x, float* out, float* h, const float* wi, const float* wh, const float* b,
              int16_t rows, int16_t units, int16_t stride) {
    const int32_t block_weights = units * kGates * 8;
    for (int32_t t = 0; t < rows; ++t, x += units, out += units, h += stride) {
        for (int32_t block = 0; block < units / 8; ++block) {
            step_block(x, h, h + 8 * block, wi + block * block_weights, wh + block * block_weights,
                       b + block * 48, out + 8 * block, units);
        }
        std::memcpy(h, out, static_cast<size_t>(units) * sizeof *h);
    }
}

void vq_ns_l5(const float* in, const float* w, const float* b, float* out, int16_t rows, int16_t units) {
    for (int32_t j = 0; j < units; j += 8, w += units * 8) {
        fill_rows(out + j, units, rows, b + j);
        add_product(out + j, units, in, units, rows, w, units);
    }
}
