#include "resampler.h"

#include <algorithm>
#include <cmath>

namespace vqns_stream {
namespace {

// Where the output that belongs to the first input sample lies.
struct Alignment {
    int64_t zeros;  // put in ahead of the sound
    int64_t skip;   // output samples then ahead of the sound
};

// The delay of a row of filters is seldom a whole number of output samples. Each zero ahead of the sound
// shifts it by from / to of one: enough of them bring it as near to a whole number as makes no difference.
Alignment align(const RateChange& change) {
    enum { kMostZeros = 4096 };
    Alignment best = {0, 0};
    double least = 1;
    for (int64_t zeros = 0; zeros < kMostZeros && least > 1e-6; ++zeros) {
        const double late = (change.delay + static_cast<double>(zeros)) * change.to / change.from;
        const double off = std::abs(late - std::round(late));
        if (off > least - 1e-9) continue;
        least = off;
        best = {zeros, static_cast<int64_t>(std::round(late))};
    }
    return best;
}

void convert(Resampler::Channel& channel, const int16_t* samples, int64_t count) {
    std::vector<int16_t> out(static_cast<size_t>(change_rate_room(channel.change)));
    while (count > 0) {
        const auto block = static_cast<int>(std::min<int64_t>(count, kRateChangeBlock));
        const int produced = change_rate(channel.change, samples, block, out.data());
        const auto dropped = static_cast<int>(std::min<int64_t>(channel.skip, produced));
        channel.skip -= dropped;
        channel.ready.insert(channel.ready.end(), out.begin() + dropped, out.begin() + produced);
        samples += block;
        count -= block;
    }
}

void convert_zeros(Resampler::Channel& channel, int64_t count) {
    const std::vector<int16_t> zeros(static_cast<size_t>(count), 0);
    convert(channel, zeros.data(), count);
}

// Output frames for the input so far that have not been handed over.
int64_t frames_due(const Resampler& resampler) {
    const double in = static_cast<double>(resampler.frames_in);
    return std::llround(in * resampler.to / resampler.from) - resampler.frames_out;
}

// Hands over what is ready in all channels and due.
void append_ready(Resampler& resampler, std::vector<int16_t>& out) {
    const size_t width = resampler.channels.size(), before = out.size();
    const auto ready = static_cast<int64_t>(resampler.channels.front().ready.size());
    const auto count = static_cast<size_t>(std::min(ready, frames_due(resampler)));
    out.resize(before + count * width);
    for (size_t c = 0; c < width; ++c) {
        std::vector<int16_t>& samples = resampler.channels[c].ready;
        for (size_t i = 0; i < count; ++i) out[before + i * width + c] = samples[i];
        samples.erase(samples.begin(), samples.begin() + static_cast<ptrdiff_t>(count));
    }
    resampler.frames_out += static_cast<int64_t>(count);
}

}  // namespace

Resampler open_resampler(int from, int to, int channels) {
    Resampler resampler;
    resampler.from = from;
    resampler.to = to;
    resampler.channels.resize(static_cast<size_t>(channels));
    for (Resampler::Channel& channel : resampler.channels) {
        channel.change = open_rate_change(from, to, RateChangeQuality::kMusic);
        const Alignment alignment = align(channel.change);
        channel.skip = alignment.skip;
        convert_zeros(channel, alignment.zeros);
    }
    return resampler;
}

void resample(Resampler& resampler, const int16_t* frames, int64_t count, std::vector<int16_t>& out) {
    const size_t width = resampler.channels.size();
    std::vector<int16_t> samples(static_cast<size_t>(count));
    for (size_t c = 0; c < width; ++c) {
        for (size_t i = 0; i < samples.size(); ++i) samples[i] = frames[i * width + c];
        convert(resampler.channels[c], samples.data(), count);
    }
    resampler.frames_in += count;
    append_ready(resampler, out);
}

void finish_resampling(Resampler& resampler, std::vector<int16_t>& out) {
    while (frames_due(resampler) > 0) {
        for (Resampler::Channel& channel : resampler.channels) convert_zeros(channel, kRateChangeBlock);
        append_ready(resampler, out);
    }
}

}  // namespace vqns_stream
