// channel_streams.h - a streaming denoiser for each channel of interleaved sound.
#ifndef VQNS_CHANNEL_STREAMS_H
#define VQNS_CHANNEL_STREAMS_H

#include <memory>
#include <vector>

#include "vqns_stream.h"

namespace vqns_tool {

struct CloseStream {
    void operator()(vqns_stream::Stream* stream) const {
        vqns_stream::close(stream);
    }
};

struct ChannelStreams {
    std::vector<std::unique_ptr<vqns_stream::Stream, CloseStream>> streams;
    std::vector<int16_t> channel;  // one channel of a block
};

// Throws Failure in the name of `input_name` for a rate that cannot be had.
ChannelStreams open_channels(const std::string& input_name, int rate, int channels,
                             const vqns_stream::Options& options);

int64_t latency(const ChannelStreams& channels);

// In place.
void process(ChannelStreams& channels, int16_t* interleaved, int64_t frames);

}  // namespace vqns_tool

#endif
