// vqns_channels.h - a stream for each channel of interleaved sound.
#ifndef VQNS_CHANNELS_H
#define VQNS_CHANNELS_H

#include <memory>
#include <vector>

#include "vqns_stream.h"

namespace vqns_stream {

struct CloseStream {
    void operator()(Stream* stream) const {
        close(stream);
    }
};

struct Channels {
    std::vector<std::unique_ptr<Stream, CloseStream>> streams;  // all alike: for the setters, go through them
};

// Options::channel is each stream's own. Throws as open does.
Channels open_channels(int rate, int channels, const Options& options);

int64_t latency(const Channels& channels);  // frames

// In place. Neither allocates nor locks.
void process(Channels& channels, int16_t* interleaved, int64_t frames);
void process(Channels& channels, float* interleaved, int64_t frames);

}  // namespace vqns_stream

#endif
