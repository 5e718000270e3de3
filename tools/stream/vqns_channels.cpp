#include "vqns_channels.h"

#include <algorithm>
#include <stdexcept>

namespace vqns_stream {
namespace {

template <typename Sample>
void process_frames(Channels& channels, Sample* interleaved, int64_t frames) {
    enum { kBlock = 512 };
    Sample samples[kBlock];
    const size_t width = channels.streams.size();
    while (frames > 0) {
        const size_t count = static_cast<size_t>(std::min<int64_t>(frames, kBlock));
        for (size_t c = 0; c < width; ++c) {
            for (size_t i = 0; i < count; ++i) samples[i] = interleaved[i * width + c];
            process(channels.streams[c].get(), samples, samples, static_cast<int64_t>(count));
            for (size_t i = 0; i < count; ++i) interleaved[i * width + c] = samples[i];
        }
        interleaved += count * width;
        frames -= static_cast<int64_t>(count);
    }
}

}  // namespace

Channels open_channels(int rate, int channels, const Options& options) {
    if (channels < 1) throw std::runtime_error("no channels");
    Channels opened;
    Options own = options;
    for (own.channel = 0; own.channel < channels; ++own.channel) opened.streams.emplace_back(open(rate, own));
    return opened;
}

int64_t latency(const Channels& channels) {
    return latency(channels.streams.front().get());
}

void process(Channels& channels, int16_t* interleaved, int64_t frames) {
    process_frames(channels, interleaved, frames);
}

void process(Channels& channels, float* interleaved, int64_t frames) {
    process_frames(channels, interleaved, frames);
}

}  // namespace vqns_stream
