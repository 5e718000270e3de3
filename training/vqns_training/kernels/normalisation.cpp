// Normalisation: over the channels of one band, with PReLU behind it; over a whole map, with a dense layer
// before it and the map that both go around added after it.
#include "kernels.h"

namespace {

constexpr float kEpsilon = 1e-3f;

struct Moments {
    float mean, inverse;  // 1 / sqrt(variance + epsilon)
};

Moments moments(const float* x, long n) {
    float sum = 0, squares = 0;
    for (long i = 0; i < n; ++i) sum += x[i];
    const float mean = sum / static_cast<float>(n);
    for (long i = 0; i < n; ++i) squares += (x[i] - mean) * (x[i] - mean);
    return {mean, 1.0f / std::sqrt(squares / static_cast<float>(n) + kEpsilon)};
}

template <long C>
void norm_prelu_forward_of(const float* x, const float* gain, const float* offset, const float* slope,
                           float* y, float* saved, long rows) {
#pragma omp parallel for schedule(static)
    for (long row = 0; row < rows; ++row) {
        const float* in = x + row * C;
        const Moments m = moments(in, C);
        saved[2 * row] = m.mean;
        saved[2 * row + 1] = m.inverse;
        for (long c = 0; c < C; ++c) {
            const float v = (in[c] - m.mean) * m.inverse * gain[c] + offset[c];
            y[row * C + c] = v > 0 ? v : v * slope[c];
        }
    }
}

template <long C>
void norm_prelu_backward_of(const float* x, const float* gain, const float* offset, const float* slope,
                            const float* saved, const float* dy, float* dx, float* dgain, float* doffset,
                            float* dslope, long rows) {
    ThreadSums sums(3 * C);
#pragma omp parallel
    {
        float sum_gain[C] = {}, sum_offset[C] = {}, sum_slope[C] = {};
#pragma omp for schedule(static)
        for (long row = 0; row < rows; ++row) {
            const float *in = x + row * C, *d = dy + row * C;
            const float mean = saved[2 * row], inverse = saved[2 * row + 1];
            float normal[C], dnormal[C], sum = 0, product = 0;
#pragma omp simd reduction(+ : sum, product)
            for (long c = 0; c < C; ++c) {
                normal[c] = (in[c] - mean) * inverse;
                const float v = normal[c] * gain[c] + offset[c], dslope_v = d[c] * slope[c];
                const float dv = v > 0 ? d[c] : dslope_v;
                sum_slope[c] += d[c] * std::min(v, 0.0f);
                sum_gain[c] += dv * normal[c];
                sum_offset[c] += dv;
                dnormal[c] = dv * gain[c];
                sum += dnormal[c];
                product += dnormal[c] * normal[c];
            }
            sum /= C;
            product /= C;
            for (long c = 0; c < C; ++c) dx[row * C + c] = inverse * (dnormal[c] - sum - normal[c] * product);
        }
        float* mine = sums.mine();
        for (long c = 0; c < C; ++c) {
            mine[c] = sum_gain[c];
            mine[C + c] = sum_offset[c];
            mine[2 * C + c] = sum_slope[c];
        }
    }
    sums.collect(0, C, dgain);
    sums.collect(C, C, doffset);
    sums.collect(2 * C, C, dslope);
}

long maps_at_once(long bands) {
    return std::max(1L, kSmallProduct / (64 * 64 * bands));
}

}  // namespace

extern "C" {

// saved: mean and inverse deviation of each row. channels: 32, 48 or 64; anything else returns 0.
int norm_prelu_forward(const float* x, const float* gain, const float* offset, const float* slope, float* y,
                       float* saved, long rows, long channels) {
    switch (channels) {
        case 32:
            norm_prelu_forward_of<32>(x, gain, offset, slope, y, saved, rows);
            return 1;
        case 48:
            norm_prelu_forward_of<48>(x, gain, offset, slope, y, saved, rows);
            return 1;
        case 64:
            norm_prelu_forward_of<64>(x, gain, offset, slope, y, saved, rows);
            return 1;
        default:
            return 0;
    }
}

int norm_prelu_backward(const float* x, const float* gain, const float* offset, const float* slope,
                        const float* saved, const float* dy, float* dx, float* dgain, float* doffset,
                        float* dslope, long rows, long channels) {
    switch (channels) {
        case 32:
            norm_prelu_backward_of<32>(x, gain, offset, slope, saved, dy, dx, dgain, doffset, dslope, rows);
            return 1;
        case 48:
            norm_prelu_backward_of<48>(x, gain, offset, slope, saved, dy, dx, dgain, doffset, dslope, rows);
            return 1;
        case 64:
            norm_prelu_backward_of<64>(x, gain, offset, slope, saved, dy, dx, dgain, doffset, dslope, rows);
            return 1;
        default:
            return 0;
    }
}

// y = around + norm(h W^T + b) gain + offset, for `maps` maps of bands x 64; W: 64 x 64, gain and offset:
// bands x 64. dense keeps h W^T + b, saved the mean and inverse deviation of each map.
void dense_norm_forward(const float* h, const float* w, const float* b, const float* gain,
                        const float* offset, const float* around, float* dense, float* saved, float* y,
                        long maps, long bands) {
    const long size = bands * 64, chunk = maps_at_once(bands);
    const std::vector<float> w_t = transposed(w, 64, 64);
#pragma omp parallel for schedule(static)
    for (long from = 0; from < maps; from += chunk) {
        const long n = std::min(chunk, maps - from);
        float* d = dense + from * size;
        for (long i = 0; i < n * bands; ++i) std::copy(b, b + 64, d + i * 64);
        multiply(CblasNoTrans, CblasNoTrans, n * bands, 64, 64, 1, h + from * size, 64, w_t.data(), 64, 1, d,
                 64);
        for (long q = 0; q < n; ++q, d += size) {
            const Moments m = moments(d, size);
            saved[2 * (from + q)] = m.mean;
            saved[2 * (from + q) + 1] = m.inverse;
            const float* in = around + (from + q) * size;
            float* out = y + (from + q) * size;
            for (long i = 0; i < size; ++i)
                out[i] = in[i] + (d[i] - m.mean) * m.inverse * gain[i] + offset[i];
        }
    }
}

// The gradient of `around` is dy itself.
void dense_norm_backward(const float* h, const float* w, const float* gain, const float* dense,
                         const float* saved, const float* dy, float* dh, float* dw, float* db, float* dgain,
                         float* doffset, long maps, long bands) {
    const long size = bands * 64, chunk = maps_at_once(bands);
    ThreadSums sums(64 * 64 + 64 + 2 * size);
#pragma omp parallel
    {
        std::vector<float> ddense(static_cast<size_t>(chunk * size));
        float *sum_w = sums.mine(), *sum_b = sum_w + 64 * 64, *sum_gain = sum_b + 64,
              *sum_offset = sum_gain + size;
#pragma omp for schedule(static)
        for (long from = 0; from < maps; from += chunk) {
            const long n = std::min(chunk, maps - from);
            for (long q = 0; q < n; ++q) {
                const float mean = saved[2 * (from + q)], inverse = saved[2 * (from + q) + 1];
                const float *d = dense + (from + q) * size, *g = dy + (from + q) * size;
                float* out = &ddense[static_cast<size_t>(q * size)];
                float sum = 0, product = 0;
                for (long i = 0; i < size; ++i) {
                    const float normal = (d[i] - mean) * inverse;
                    sum_gain[i] += g[i] * normal;
                    sum_offset[i] += g[i];
                    out[i] = g[i] * gain[i];
                    sum += out[i];
                    product += out[i] * normal;
                }
                sum /= static_cast<float>(size);
                product /= static_cast<float>(size);
                for (long i = 0; i < size; i += 64) {
                    for (long c = i; c < i + 64; ++c) {
                        out[c] = inverse * (out[c] - sum - (d[c] - mean) * inverse * product);
                        sum_b[c - i] += out[c];
                    }
                }
            }
            multiply(CblasTrans, CblasNoTrans, 64, 64, n * bands, 1, ddense.data(), 64, h + from * size, 64,
                     1, sum_w, 64);
            multiply(CblasNoTrans, CblasNoTrans, n * bands, 64, 64, 1, ddense.data(), 64, w, 64, 0,
                     dh + from * size, 64);
        }
    }
    sums.collect(0, 64 * 64, dw);
    sums.collect(64 * 64, 64, db);
    sums.collect(64 * 64 + 64, size, dgain);
    sums.collect(64 * 64 + 64 + size, size, doffset);
}
}
