#include "stream_timing.h"

#include <algorithm>
#include <cmath>

namespace vqns_stream {
namespace {

// How many samples the output falls short of the input, at most. Output comes hop by hop, so the worst
// moment is the sample before a hop is complete. A second holds a whole number of hops at any rate, and the
// counts repeat from there on.
int64_t most_short(const RateChange& to_engine, const RateChange& from_engine, int hop_offset) {
    int64_t most = 0;
    for (int64_t hops = 0; hops <= kEngineRate / kHopSize; ++hops) {
        const int64_t before_next = inputs_for(to_engine, (hops + 1) * kHopSize - hop_offset) - 1;
        most = std::max(most, before_next - outputs_after(from_engine, hops * kHopSize));
    }
    return most;
}

}  // namespace

// Filters of three stages delay by fractions of a sample. Hops may begin anywhere in the 16 kHz stream: each
// zero ahead of them delays the stream by 1/16000 s, and shortens the wait for the first hop by as much. So
// among the 160 offsets, all of nearly the same delay, the one is taken that makes the delay whole.
Timing stream_timing(const RateChange& to_engine, const RateChange& from_engine) {
    const double rate = to_engine.from;
    Timing best = {0, 0, 0, 1.0};
    for (int offset = 0; offset < kHopSize; ++offset) {
        const double engine = kEngineHops * kHopSize + offset + from_engine.delay;
        const int64_t lead = most_short(to_engine, from_engine, offset);
        const double delay = static_cast<double>(lead) + to_engine.delay + engine * rate / kEngineRate;
        const double whole = std::round(delay);
        const Timing timing = {offset, lead, static_cast<int64_t>(whole), delay - whole};
        const double gain = std::abs(best.residual) - std::abs(timing.residual);
        const bool equal = std::abs(gain) < 1e-9;
        if ((equal && timing.latency < best.latency) || (!equal && gain > 0)) best = timing;
    }
    return best;
}

}  // namespace vqns_stream
