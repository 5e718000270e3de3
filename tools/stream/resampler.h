// resampler.h - interleaved 16-bit sound at a new rate, sample on sample with the original.
//
// The delay of the filters is taken out, and N frames become round(N * to / from): what a recording needs, as
// change_rate is what a live stream needs. The result does not depend on how the sound is cut into blocks.
#ifndef VQNS_RESAMPLER_H
#define VQNS_RESAMPLER_H

#include <vector>

#include "rate_change.h"

namespace vqns_stream {

enum { kLowestNewRate = 1000, kHighestNewRate = 768000 };

struct Resampler {
    // One channel on its way: what has come out and is not yet due.
    struct Channel {
        RateChange change;
        std::vector<int16_t> ready;
        int64_t skip = 0;  // output samples ahead of the sound
    };
    int from = 0, to = 0;
    std::vector<Channel> channels;
    int64_t frames_in = 0, frames_out = 0;
};

// Throws std::runtime_error for rates that cannot be converted.
Resampler open_resampler(int from, int to, int channels);

// Appends what comes of `count` more frames to `out`.
void resample(Resampler& resampler, const int16_t* frames, int64_t count, std::vector<int16_t>& out);

// After the last frame: appends what is still inside.
void finish_resampling(Resampler& resampler, std::vector<int16_t>& out);

}  // namespace vqns_stream

#endif
