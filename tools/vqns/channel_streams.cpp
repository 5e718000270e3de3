#include "channel_streams.h"

#include "failure.h"

namespace vqns_tool {

ChannelStreams open_channels(const std::string& input_name, int rate, int channels,
                             const vqns_stream::Options& options) {
    ChannelStreams opened;
    try {
        for (int c = 0; c < channels; ++c) opened.streams.emplace_back(vqns_stream::open(rate, options));
    } catch (const std::runtime_error& error) {
        fail(input_name, error.what());
    }
    return opened;
}

int64_t latency(const ChannelStreams& channels) {
    return vqns_stream::latency(channels.streams.front().get());
}

void process(ChannelStreams& channels, int16_t* interleaved, int64_t frames) {
    const size_t width = channels.streams.size(), count = static_cast<size_t>(frames);
    channels.channel.resize(count);
    for (size_t c = 0; c < width; ++c) {
        int16_t* samples = channels.channel.data();
        for (size_t i = 0; i < count; ++i) samples[i] = interleaved[i * width + c];
        vqns_stream::process(channels.streams[c].get(), samples, samples, frames);
        for (size_t i = 0; i < count; ++i) interleaved[i * width + c] = samples[i];
    }
}

}  // namespace vqns_tool
