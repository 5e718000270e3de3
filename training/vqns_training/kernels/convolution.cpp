// Convolutions of stride 2 over the bands and a few taps over the frames, as matrix products over windows.
//
// Of the two maps that a layer joins, the wide one has `wide` bands of `cw` channels and the narrow one
// (wide - taps) / 2 + 1 bands of `cn` channels: band f of the narrow map faces bands 2f .. 2f + taps - 1 of
// the wide one. Weights are w[k][tap][cw][cn]: frame t of the narrow map faces frame t + k of the wide one.
//
//   gather     narrow[t] = bias + sum over k of window(wide[t + k]) w[k]
//              forward of a convolution, backward of a transposed one
//   spread     wide[t] = bias + sum over k of narrow[t - k] w[k]^T
//              forward of a transposed one, backward of a convolution
//   correlate  w[k] = sum over t of window(wide[t + k])^T narrow[t]
//              gradient of either one's weights
//
// Frames beyond a map's end count as zero.
#include "kernels.h"

namespace {

struct Layer {
    long batch, wide, cw, cn, times, taps;
    long narrow() const {
        return (wide - taps) / 2 + 1;
    }
    long window() const {
        return taps * cw;
    }
    // Frames (of one sequence) that one matrix product takes.
    long frames_at_once() const {
        return std::max(1L, std::min(512L, kSmallProduct / (window() * cn)) / narrow());
    }
};

// Size: of a window, where the compiler is to know it.
template <long Size = 0>
void pack_windows(const Layer& l, const float* wide, long n, float* out) {
    const long size = Size > 0 ? Size : l.window();
    for (long q = 0; q < n; ++q) {
        for (long f = 0; f < l.narrow(); ++f, out += size) {
            std::memcpy(out, wide + (q * l.wide + 2 * f) * l.cw, static_cast<size_t>(size) * sizeof(float));
        }
    }
}

template <long Size = 0>
void add_windows(const Layer& l, const float* __restrict windows, long n, float* __restrict wide) {
    const long size = Size > 0 ? Size : l.window();
    for (long q = 0; q < n; ++q) {
        for (long f = 0; f < l.narrow(); ++f, windows += size) {
            float* out = wide + (q * l.wide + 2 * f) * l.cw;
            for (long i = 0; i < size; ++i) out[i] += windows[i];
        }
    }
}

// Windows of `n` frames of a wide map, [frame, narrow band, window].
void pack(const Layer& l, const float* wide, long n, float* windows) {
    l.window() == 10 ? pack_windows<10>(l, wide, n, windows) : pack_windows(l, wide, n, windows);
}

void add(const Layer& l, const float* windows, long n, float* wide) {
    l.window() == 10 ? add_windows<10>(l, windows, n, wide) : add_windows(l, windows, n, wide);
}

// Fills rows with the bias, or with zero.
void fill(float* out, long rows, long channels, const float* bias) {
    if (bias == nullptr) {
        std::memset(out, 0, static_cast<size_t>(rows * channels) * sizeof(float));
        return;
    }
    for (long i = 0; i < rows; ++i) std::copy(bias, bias + channels, out + i * channels);
}

}  // namespace

extern "C" {

// wide has wide_frames frames, narrow gets narrow_frames. bias: cn values or null.
void gather(const float* wide_map, const float* w, const float* bias, float* narrow_map, long wide_frames,
            long narrow_frames, long batch, long wide, long cw, long cn, long times, long taps) {
    const Layer l{batch, wide, cw, cn, times, taps};
    const long count = narrow_frames * batch, chunk = l.frames_at_once();
#pragma omp parallel
    {
        std::vector<float> windows(static_cast<size_t>(chunk * l.narrow() * l.window()));
#pragma omp for schedule(static)
        for (long from = 0; from < count; from += chunk) {
            const long n = std::min(chunk, count - from);
            float* out = narrow_map + from * l.narrow() * cn;
            fill(out, n * l.narrow(), cn, bias);
            for (long k = 0; k < times; ++k) {
                const long have = std::min(n, wide_frames * batch - from - k * batch);
                if (have <= 0) continue;
                pack(l, wide_map + (from + k * batch) * wide * cw, have, windows.data());
                multiply(CblasNoTrans, CblasNoTrans, have * l.narrow(), cn, l.window(), 1, windows.data(),
                         l.window(), w + k * l.window() * cn, cn, 1, out, cn);
            }
        }
    }
}

// bias: cw values or null.
void spread(const float* narrow_map, const float* w, const float* bias, float* wide_map, long narrow_frames,
            long wide_frames, long batch, long wide, long cw, long cn, long times, long taps) {
    const Layer l{batch, wide, cw, cn, times, taps};
    const long count = wide_frames * batch, chunk = l.frames_at_once();
    std::vector<float> w_t;  // [k][cn][window]
    for (long k = 0; k < times; ++k) {
        const std::vector<float> one = transposed(w + k * l.window() * cn, l.window(), cn);
        w_t.insert(w_t.end(), one.begin(), one.end());
    }
#pragma omp parallel
    {
        std::vector<float> windows(static_cast<size_t>(chunk * l.narrow() * l.window()));
#pragma omp for schedule(static)
        for (long from = 0; from < count; from += chunk) {
            const long n = std::min(chunk, count - from);
            fill(wide_map + from * wide * cw, n * wide, cw, bias);
            for (long k = 0; k < times; ++k) {
                const long begin = std::max(from, k * batch);
                const long end = std::min(from + n, (narrow_frames + k) * batch);
                if (begin >= end) continue;
                multiply(CblasNoTrans, CblasNoTrans, (end - begin) * l.narrow(), l.window(), cn, 1,
                         narrow_map + (begin - k * batch) * l.narrow() * cn, cn,
                         &w_t[static_cast<size_t>(k * l.window() * cn)], l.window(), 0, windows.data(),
                         l.window());
                add(l, windows.data(), end - begin, wide_map + begin * wide * cw);
            }
        }
    }
}

void correlate(const float* wide_map, const float* narrow_map, float* dw, long wide_frames,
               long narrow_frames, long batch, long wide, long cw, long cn, long times, long taps) {
    const Layer l{batch, wide, cw, cn, times, taps};
    const long count = narrow_frames * batch, chunk = l.frames_at_once(), size = times * l.window() * cn;
    ThreadSums sums(size);
#pragma omp parallel
    {
        std::vector<float> windows(static_cast<size_t>(chunk * l.narrow() * l.window()));
#pragma omp for schedule(static)
        for (long from = 0; from < count; from += chunk) {
            for (long k = 0; k < times; ++k) {
                const long have =
                    std::min(std::min(chunk, count - from), wide_frames * batch - from - k * batch);
                if (have <= 0) continue;
                pack(l, wide_map + (from + k * batch) * wide * cw, have, windows.data());
                multiply(CblasTrans, CblasNoTrans, l.window(), cn, have * l.narrow(), 1, windows.data(),
                         l.window(), narrow_map + from * l.narrow() * cn, cn, 1,
                         sums.mine() + k * l.window() * cn, cn);
            }
        }
    }
    sums.collect(0, size, dw);
}

// Gradient of a bias: the sum over all rows.
void sum_rows(const float* map, float* sum, long rows, long channels) {
    ThreadSums sums(channels);
#pragma omp parallel for schedule(static)
    for (long from = 0; from < rows; from += 4096) {
        float* mine = sums.mine();
        for (long i = from; i < std::min(rows, from + 4096); ++i) {
            for (long c = 0; c < channels; ++c) mine[c] += map[i * channels + c];
        }
    }
    sums.collect(0, channels, sum);
}
}
