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

static inline void add_scaled(Block& sum, float x, const float* w) {
    for (int u = 0; u < 8; ++u) sum.lane[u] += x * w[u];
}

/* out[r * out_stride + u] += sum over i < n of x[r * x_stride + i] * w[8 i + u], r < rows, u < 8. Four rows
 * at a time: a weight that has been read serves all of them, and four sums grow side by side. */
static inline void add_product(float* out, int32_t out_stride, const float* x, int32_t x_stride, int32_t rows,
                               const float* w, int32_t n) {
    int32_t r = 0;
    for (; r + 4 <= rows; r += 4, out += 4 * out_stride, x += 4 * x_stride) {
        Block a = load(out), b = load(out + out_stride);
        Block c = load(out + 2 * out_stride), d = load(out + 3 * out_stride);
        for (int32_t i = 0; i < n; ++i) {
            add_scaled(a, x[i], w + i * 8);
            add_scaled(b, x[x_stride + i], w + i * 8);
            add_scaled(c, x[2 * x_stride + i], w + i * 8);
            add_scaled(d, x[3 * x_stride + i], w + i * 8);
        }
        store(out, a);
        store(out + out_stride, b);
        store(out + 2 * out_stride, c);
        store(out + 3 * out_stride, d);
    }
    for (; r < rows; ++r, out += out_stride, x += x_stride) {
        Block sum = load(out);
        for (int32_t i = 0; i < n; ++i) add_scaled(sum, x[i], w + i * 8);
        store(out, sum);
    }
}

/* out[r * stride + u] = bias[u], r < rows, u < 8 */
static inline void fill_rows(float* out, int32_t stride, int32_t rows, const float* bias) {
    for (int32_t r = 0; r < rows; ++r) store(out + r * stride, load(bias));
}

#endif
