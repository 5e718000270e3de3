// A gated recurrent layer of 64 units from a zero state, over the bands of a frame or over the frames of a
// band.
//
//   r = sigmoid(Wi_r x + bi_r + Wh_r h + bh_r)          z alike
//   n = tanh(Wi_n x + bi_n + r (Wh_n h + bh_n))         h' = z h + (1 - z) n
//
// Sequences go in blocks that stay in cache: per step three matrix products straight into the block's rows of
// `gates`, then one pass over them that turns sums into gates. The rows of `gates` lie as those of x do, 256
// floats each: r, z, n and the recurrent part of the candidate. The backward pass overwrites them with the
// gradients of the sums, after which the input's and the weights' gradients are a few large products.
#include "kernels.h"

namespace {

constexpr long kUnits = 64, kGates = 4 * kUnits, kWeights = 3 * kUnits * kUnits;
constexpr long kBlock = kSmallProduct / kWeights;  // rows of a product

// Within bounds where no fast approximation overflows and none is needed.
float sigmoid(float x) {
    return 1.0f / (1.0f + std::exp(std::min(-x, 80.0f)));
}

struct Walk {
    long steps, sequences;
    long step, sequence;  // strides in rows
    long block;           // sequences that run together
    long blocks() const {
        return (sequences + block - 1) / block;
    }
    long in_block(long b) const {
        return std::min(block, sequences - b * block);
    }
    long row(long b, long t) const {
        return b * block * sequence + t * step;
    }
};

Walk walk_of(long frames, long batch, long bands, bool over_time) {
    Walk w = over_time ? Walk{frames, batch * bands, batch * bands, 1, 0}
                       : Walk{bands, frames * batch, 1, bands, 0};
    const long share = (w.sequences + omp_get_max_threads() - 1) / omp_get_max_threads();
    w.block = std::min(kBlock, share);
    return w;
}

// Sums of one row to gates and state; before: the state before, null for zero.
void close_gates(float* __restrict gate, const float* __restrict bias, const float* __restrict before,
                 float* __restrict after) {
    static const float zero[kUnits] = {};
    if (before == nullptr) before = zero;
#pragma omp simd
    for (long j = 0; j < kUnits; ++j) {
        const float r = sigmoid(gate[j] + bias[j]);
        const float z = sigmoid(gate[kUnits + j] + bias[kUnits + j]);
        const float recurrent = gate[3 * kUnits + j] + bias[3 * kUnits + j];
        const float n =
            2.0f * sigmoid(2.0f * (gate[2 * kUnits + j] + bias[2 * kUnits + j] + r * recurrent)) - 1.0f;
        gate[j] = r;
        gate[kUnits + j] = z;
        gate[2 * kUnits + j] = n;
        gate[3 * kUnits + j] = recurrent;
        after[j] = n + z * (before[j] - n);
    }
}

// Gates of one row to gradients of the sums, in the order n, r, z, recurrent part of n: so the first three
// belong to the input's weights and the last three to the state's. dh: gradient of the state, in: after the
// step, out: the direct share of the state before.
void open_gates(float* __restrict gate, const float* __restrict before, const float* __restrict dy,
                float* __restrict dh) {
    static const float zero[kUnits] = {};
    if (before == nullptr) before = zero;
#pragma omp simd
    for (long j = 0; j < kUnits; ++j) {
        const float r = gate[j], z = gate[kUnits + j], n = gate[2 * kUnits + j],
                    recurrent = gate[3 * kUnits + j];
        const float d = dh[j] + dy[j];
        const float dn = d * (1.0f - z) * (1.0f - n * n);
        gate[j] = dn;
        gate[kUnits + j] = dn * recurrent * r * (1.0f - r);
        gate[2 * kUnits + j] = d * (before[j] - n) * z * (1.0f - z);
        gate[3 * kUnits + j] = dn * r;
        dh[j] = d * z;
    }
}

}  // namespace

extern "C" {

// x, y: rows of 64; gates: rows of 256; wi, wh: 192 x 64 and bi, bh: 192 in the order r, z, n.
void recurrent_forward(const float* x, const float* wi, const float* wh, const float* bi, const float* bh,
                       float* gates, float* y, long frames, long batch, long bands, int over_time) {
    const Walk w = walk_of(frames, batch, bands, over_time != 0);
    float bias[kGates];
    for (long j = 0; j < kUnits; ++j) {
        for (const long g : {0L, kUnits}) bias[g + j] = bi[g + j] + bh[g + j];
        bias[2 * kUnits + j] = bi[2 * kUnits + j];
        bias[3 * kUnits + j] = bh[2 * kUnits + j];
    }
    const std::vector<float> wi_t = transposed(wi, 3 * kUnits, kUnits),
                             wh_t = transposed(wh, 3 * kUnits, kUnits);
#pragma omp parallel for schedule(dynamic)
    for (long b = 0; b < w.blocks(); ++b) {
        const long n = w.in_block(b);
        for (long t = 0; t < w.steps; ++t) {
            const long row = w.row(b, t);
            float* gate = gates + row * kGates;
            const float* before = t > 0 ? y + (row - w.step) * kUnits : nullptr;
            const long ld = w.sequence * kUnits, ldg = w.sequence * kGates;
            multiply(CblasNoTrans, CblasNoTrans, n, 3 * kUnits, kUnits, 1, x + row * kUnits, ld, wi_t.data(),
                     3 * kUnits, 0, gate, ldg);
            if (before != nullptr) {
                multiply(CblasNoTrans, CblasNoTrans, n, 2 * kUnits, kUnits, 1, before, ld, wh_t.data(),
                         3 * kUnits, 1, gate, ldg);
                multiply(CblasNoTrans, CblasNoTrans, n, kUnits, kUnits, 1, before, ld, &wh_t[2 * kUnits],
                         3 * kUnits, 0, gate + 3 * kUnits, ldg);
            } else {
                for (long i = 0; i < n; ++i)
                    std::memset(gate + i * ldg + 3 * kUnits, 0, kUnits * sizeof(float));
            }
            for (long i = 0; i < n; ++i) {
                close_gates(gate + i * ldg, bias, before != nullptr ? before + i * ld : nullptr,
                            y + row * kUnits + i * ld);
            }
        }
    }
}

// gates are used up. dbi, dbh: 192; dwi, dwh: 192 x 64.
void recurrent_backward(const float* x, const float* wi, const float* wh, float* gates, const float* y,
                        const float* dy, float* dx, float* dwi, float* dwh, float* dbi, float* dbh,
                        long frames, long batch, long bands, int over_time) {
    const Walk w = walk_of(frames, batch, bands, over_time != 0);
#pragma omp parallel for schedule(dynamic)
    for (long b = 0; b < w.blocks(); ++b) {
        const long n = w.in_block(b), ld = w.sequence * kUnits, ldg = w.sequence * kGates;
        std::vector<float> dh(static_cast<size_t>(n * kUnits));
        for (long t = w.steps - 1; t >= 0; --t) {
            const long row = w.row(b, t);
            float* gate = gates + row * kGates;
            const float* before = t > 0 ? y + (row - w.step) * kUnits : nullptr;
            for (long i = 0; i < n; ++i) {
                open_gates(gate + i * ldg, before != nullptr ? before + i * ld : nullptr,
                           dy + row * kUnits + i * ld, &dh[static_cast<size_t>(i * kUnits)]);
            }
            multiply(CblasNoTrans, CblasNoTrans, n, kUnits, 3 * kUnits, 1, gate + kUnits, ldg, wh, kUnits, 1,
                     dh.data(), kUnits);
        }
    }

    // The input's weights with the candidate first, as the gradients lie.
    std::vector<float> wi_nrz(kWeights);
    std::copy(wi + 2 * kUnits * kUnits, wi + kWeights, wi_nrz.begin());
    std::copy(wi, wi + 2 * kUnits * kUnits, wi_nrz.begin() + kUnits * kUnits);
    const long rows = frames * batch * bands, chunk = kBlock;
    ThreadSums sums(2 * kWeights + kGates);
#pragma omp parallel for schedule(static)
    for (long from = 0; from < rows; from += chunk) {
        const long n = std::min(chunk, rows - from);
        float *sum_wi = sums.mine(), *sum_wh = sum_wi + kWeights, *sum_b = sum_wh + kWeights;
        const float* gate = gates + from * kGates;
        multiply(CblasNoTrans, CblasNoTrans, n, kUnits, 3 * kUnits, 1, gate, kGates, wi_nrz.data(), kUnits, 0,
                 dx + from * kUnits, kUnits);
        multiply(CblasTrans, CblasNoTrans, 3 * kUnits, kUnits, n, 1, gate, kGates, x + from * kUnits, kUnits,
                 1, sum_wi, kUnits);
        // The state before a row is the output `step` rows above it...
        const long first = std::max(from, w.step);
        multiply(CblasTrans, CblasNoTrans, 3 * kUnits, kUnits, from + n - first, 1,
                 gates + first * kGates + kUnits, kGates, y + (first - w.step) * kUnits, kUnits, 1, sum_wh,
                 kUnits);
        // ... except for the rows that begin a sequence: over the bands, every one that is a multiple of
        // them.
        if (over_time == 0) {
            const long start = std::max(bands, (from + bands - 1) / bands * bands);
            multiply(CblasTrans, CblasNoTrans, 3 * kUnits, kUnits, (from + n - start + bands - 1) / bands, -1,
                     gates + start * kGates + kUnits, bands * kGates, y + (start - 1) * kUnits,
                     bands * kUnits, 1, sum_wh, kUnits);
        }
        for (long i = 0; i < n; ++i) {
            for (long j = 0; j < kGates; ++j) sum_b[j] += gate[i * kGates + j];
        }
    }
    sums.collect(0, kUnits * kUnits, dwi + 2 * kUnits * kUnits);
    sums.collect(kUnits * kUnits, 2 * kUnits * kUnits, dwi);
    sums.collect(kWeights, kWeights, dwh);
    sums.collect(2 * kWeights, kUnits, dbi + 2 * kUnits);
    sums.collect(2 * kWeights + kUnits, 2 * kUnits, dbi);
    sums.collect(2 * kWeights + kUnits, 3 * kUnits, dbh);
}
}
