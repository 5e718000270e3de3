#ifndef BLOCKS_H
#define BLOCKS_H

#include <cstdint>

/* Eight output units side by side, as the weight tables store them. Plain loops of fixed length, which the
 * compiler turns into one vector operation each. */
struct Block {
    float lane[8];
};

static inline Block load(const float* x) {
    Block b;
    for (int u = 0; u < 8; ++u) b.lane[u] = x[u];
    return b;
}

static inline void store(float* x, const Block& b) {
    for (int u = 0; u < 8; ++u) x[u] = b.lane[u];
}

static inline void add(Block& a, const Block& b) {
    for (int u = 0; u < 8; ++u) a.lane[u] += b.lane[u];
}

/* sum[u] += sum over i < n of x[i] * w[i * stride + u] */
static inline void add_product(Block& sum, const float* x, const float* w, int32_t n, int32_t stride = 8) {
    for (int32_t i = 0; i < n; ++i, w += stride) {
        for (int u = 0; u < 8; ++u) sum.lane[u] += x[i] * w[u];
    }
}

#endif
