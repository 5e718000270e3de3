// level_meter.h - the level of speech and of speech pauses, before and after.
#ifndef VQNS_LEVEL_METER_H
#define VQNS_LEVEL_METER_H

#include <cstdint>
#include <string>
#include <vector>

#include "vqns_stream.h"

namespace vqns_tool {

// Sums over hops of 10 ms. The detector's decision on the denoised hop sorts the hop before and the hop
// after alike, so both levels are over the same stretches of time.
struct LevelMeter {
    struct Sum {
        double before = 0, after = 0;  // of squared samples
        int64_t hops = 0;
    };
    Sum speech, pauses;                // over all channels
    std::vector<size_t> hops_of;       // by channel
    std::vector<bool> anybody_speaks;  // by hop
    double end = 1e300;  // seconds of input; hops that reach beyond it, or before 0, do not count
};

void meter_hop(LevelMeter& meter, const vqns_stream::Hop& hop);

// Of the time, with speech in any channel: 0 to 1.
double speech_share(const LevelMeter& meter);

// Root mean square in dB below full scale (32768). -infinity for digital silence.
double level_before(const LevelMeter::Sum& sum);
double level_after(const LevelMeter::Sum& sum);

std::string dbfs(double level);  // "-41.2 dBFS", "digital silence"

// "21.8 dB quieter"; empty where one of them is silence.
std::string describe_change(const LevelMeter::Sum& sum);

// One line: "-41.2 dBFS before, -63.0 dBFS after (21.8 dB quieter)".
std::string describe(const LevelMeter::Sum& sum);

}  // namespace vqns_tool

#endif
