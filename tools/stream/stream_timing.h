// stream_timing.h - the delay of conversion to the engine's rate, its hops, and conversion back.
#ifndef VQNS_STREAM_TIMING_H
#define VQNS_STREAM_TIMING_H

#include "rate_change.h"
#include "vq_ns.h"
#include "vqns_stream.h"

namespace vqns_stream {

constexpr int kEngineRate = VQ_NS_RATE;  // Hz
constexpr int kHopSize = VQ_NS_HOP;
static_assert(kHopSize == kHopSeconds * kEngineRate);

// From a hop in to the same hop out, at 16 kHz: three hops complete the first frame, two more the network's
// look-ahead, the last of them being the one that comes out in the same call.
constexpr int kEngineHops = 4;

struct Timing {
    int hop_offset;      // zeros at 16 kHz ahead of the stream, 0..159
    int64_t queue_lead;  // zeros ahead of the output, so that every call finds as many samples as it brings
    int64_t latency;     // whole stream samples from input to output
    double residual;     // delay beyond `latency`, in stream samples
};

Timing stream_timing(const RateChange& to_engine, const RateChange& from_engine);

}  // namespace vqns_stream

#endif
