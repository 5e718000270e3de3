#include "spectrogram.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>

namespace vqns_tool {
namespace {

enum { kMostColumns = 3000 };

// Radix 2, decimation in time, in place.
void transform(const Spectrogram& s, std::vector<std::complex<double>>& x) {
    const size_t n = x.size();
    for (size_t i = 1, j = 0; i < n; ++i) {
        size_t bit = n / 2;
        for (; (j & bit) != 0; bit /= 2) j ^= bit;
        j ^= bit;
        if (i < j) std::swap(x[i], x[j]);
    }
    for (size_t half = 1; half < n; half *= 2) {
        for (size_t start = 0; start < n; start += 2 * half) {
            for (size_t k = 0; k < half; ++k) {
                const std::complex<double> odd = s.turns[k * (n / (2 * half))] * x[start + k + half];
                x[start + k + half] = x[start + k] - odd;
                x[start + k] += odd;
            }
        }
    }
}

void join_columns(Spectrogram& s) {
    const size_t joined = (s.columns.size() + 1) / 2;
    for (size_t c = 0; c < joined; ++c) {
        std::vector<float> sum = std::move(s.columns[2 * c]);
        int64_t frames = s.frames_in[2 * c];
        if (2 * c + 1 < s.columns.size()) {
            for (size_t k = 0; k < sum.size(); ++k) sum[k] += s.columns[2 * c + 1][k];
            frames += s.frames_in[2 * c + 1];
        }
        s.columns[c] = std::move(sum);
        s.frames_in[c] = frames;
    }
    s.columns.resize(joined);
    s.frames_in.resize(joined);
    s.frames_per_column *= 2;
}

std::vector<float>& column_for_next_frame(Spectrogram& s) {
    if (s.columns.empty() || s.frames_in.back() == s.frames_per_column) {
        if (s.columns.size() == kMostColumns) join_columns(s);
    }
    if (s.columns.empty() || s.frames_in.back() == s.frames_per_column) {
        s.columns.emplace_back(s.size / 2 + 1, 0.0f);
        s.frames_in.push_back(0);
    }
    ++s.frames_in.back();
    return s.columns.back();
}

// A sine at full scale has the power 1 in its bin.
void add_frame(Spectrogram& s) {
    std::vector<float>& column = column_for_next_frame(s);
    const double full = 32768.0 * static_cast<double>(s.size) / 4;
    for (const std::vector<double>& channel : s.waiting) {
        for (size_t i = 0; i < s.size; ++i) s.work[i] = s.window[i] * channel[i];
        transform(s, s.work);
        for (size_t k = 0; k < column.size(); ++k) {
            column[k] += static_cast<float>(std::norm(s.work[k]) / (full * full * s.channels));
        }
    }
}

void add_frames(Spectrogram& s) {
    while (s.waiting.front().size() >= s.size) {
        add_frame(s);
        for (std::vector<double>& channel : s.waiting) {
            channel.erase(channel.begin(), channel.begin() + static_cast<ptrdiff_t>(s.step));
        }
    }
}

size_t clamp_index(double at, size_t count) {
    return static_cast<size_t>(std::clamp(std::floor(at), 0.0, static_cast<double>(count - 1)));
}

double column_power(const Spectrogram& s, size_t c, size_t k) {
    return s.columns[c][k] / static_cast<double>(s.frames_in[c]);
}

// Between the centres of the columns and bins around a point.
double interpolated(const Spectrogram& s, double column, double bin) {
    const size_t c0 = clamp_index(column, s.columns.size());
    const size_t c1 = clamp_index(column + 1, s.columns.size());
    const size_t k0 = clamp_index(bin, s.size / 2 + 1), k1 = clamp_index(bin + 1, s.size / 2 + 1);
    const double c = std::clamp(column - static_cast<double>(c0), 0.0, 1.0);
    const double k = std::clamp(bin - static_cast<double>(k0), 0.0, 1.0);
    return (1 - c) * ((1 - k) * column_power(s, c0, k0) + k * column_power(s, c0, k1)) +
           c * ((1 - k) * column_power(s, c1, k0) + k * column_power(s, c1, k1));
}

}  // namespace

void open_spectrogram(Spectrogram& s, int rate, int channels) {
    s.rate = rate;
    s.channels = channels;
    s.size = std::bit_ceil(static_cast<size_t>(rate) * 22 / 1000);
    s.step = static_cast<size_t>(std::max(rate / 250, 1));
    for (size_t i = 0; i < s.size; ++i) {
        const double angle = 2 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(s.size);
        s.window.push_back(0.5 - 0.5 * std::cos(angle));
        s.turns.push_back(std::polar(1.0, -angle));
    }
    s.work.resize(s.size);
    // Frame i is centred on sample i * step.
    s.waiting.assign(static_cast<size_t>(channels), std::vector<double>(s.size / 2, 0.0));
}

void add_sound(Spectrogram& s, const int16_t* interleaved, int64_t frames) {
    for (int64_t i = 0; i < frames; ++i) {
        for (std::vector<double>& channel : s.waiting) channel.push_back(*interleaved++);
        if (s.waiting.front().size() >= s.size) add_frames(s);
    }
    s.samples += frames;
}

void end_sound(Spectrogram& s) {
    for (std::vector<double>& channel : s.waiting) channel.insert(channel.end(), s.size / 2, 0.0);
    add_frames(s);
}

double power_at(const Spectrogram& s, const Stretch& stretch) {
    // Column c is centred on frame (c + 1/2) * frames_per_column - 1/2.
    const double frame = stretch.time * s.rate / static_cast<double>(s.step);
    const double column = (frame + 0.5) / static_cast<double>(s.frames_per_column) - 0.5;
    const double bin = stretch.frequency * static_cast<double>(s.size) / s.rate;
    const double columns =
        stretch.duration * s.rate / static_cast<double>(s.step) / static_cast<double>(s.frames_per_column);
    const double bins = stretch.bandwidth * static_cast<double>(s.size) / s.rate;
    // As many points as there are columns and bins within the stretch.
    const int across = std::max(1, static_cast<int>(std::ceil(columns)));
    const int down = std::max(1, static_cast<int>(std::ceil(bins)));
    double sum = 0;
    for (int i = 0; i < across; ++i) {
        for (int j = 0; j < down; ++j) {
            sum += interpolated(s, column + ((i + 0.5) / across - 0.5) * columns,
                                bin + ((j + 0.5) / down - 0.5) * bins);
        }
    }
    return sum / (across * down);
}

}  // namespace vqns_tool
