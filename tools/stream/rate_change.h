// rate_change.h - one mono stream of 16-bit PCM from one rate to another, in blocks of any size.
//
// Whatever does the work, the rule is one: the conversion is a row of stages, a stage that turns L for M has
// put out ceil(n L / M) samples after n, and output m shows the input at m * from / to - delay, in input
// samples. So counts and delay are known before the first sample, and blocks leave no trace in the result.
#ifndef VQNS_RATE_CHANGE_H
#define VQNS_RATE_CHANGE_H

#include <samplerate.h>

#include <memory>
#include <vector>

#include "rate_converter.h"

namespace vqns_stream {

enum { kRateChangeBlock = 160 };  // longest block of one change_rate call

// The library's own converter, for pairs of its eight rates.
struct FixedPointConverter {
    RK_VOIP_DSP_SRC_RECORD(RK_VOIP_DSP_SRC_ROOM(kRateChangeBlock)) memory;
};

// Band-limited interpolation by libsamplerate, for all other pairs. Its own delay is zero, at the price of
// an unknown number of samples that it keeps back: `delay` zeros ahead of the stream let it always put out
// what is due.
struct Interpolator {
    std::unique_ptr<SRC_STATE, SRC_STATE* (*)(SRC_STATE*)> state{nullptr, src_delete};
    double ratio = 1;
    std::vector<float> waiting;  // input not yet taken; capacity fixed at the start
    std::vector<float> due;      // output of one call
    int64_t taken_in = 0, put_out = 0;
};

struct RateChange {
    struct Ratio {
        int64_t up, down;
    };
    int from = 0, to = 0;
    std::vector<Ratio> stages;  // none: equal rates
    double delay = 0;           // input samples
    std::unique_ptr<FixedPointConverter> fixed_point;
    std::unique_ptr<Interpolator> interpolator;
};

// What the conversion is for: kVoice has little delay and the filters that the engine itself uses; kMusic
// the better filters of each kind.
enum class RateChangeQuality { kVoice, kMusic };

// True for the eight rates that the library converts itself.
bool is_library_rate(int rate);

// Throws std::runtime_error for rates that cannot be converted.
RateChange open_rate_change(int from, int to, RateChangeQuality quality);

// Converts up to kRateChangeBlock samples and returns how many it wrote. Does not allocate. out must not be
// in and has room for change_rate_room(change) samples.
int change_rate(RateChange& change, const int16_t* in, int count, int16_t* out);
int change_rate_room(const RateChange& change);

// Samples put out after n in all, and the fewest samples in that make m come out.
int64_t outputs_after(const RateChange& change, int64_t n);
int64_t inputs_for(const RateChange& change, int64_t m);

}  // namespace vqns_stream

#endif
