// denoising.h - a recording on its way through the suppressor: what `denoise` and `report` have in common.
#ifndef VQNS_DENOISING_H
#define VQNS_DENOISING_H

#include <functional>
#include <limits>
#include <string>

#include "audio_input.h"
#include "level_meter.h"
#include "vqns_channels.h"

namespace vqns_tool {

struct DenoisingOptions {
    std::string in;
    RawFormat raw;
    double attenuation_limit = std::numeric_limits<double>::infinity();  // dB
    bool level = true;
    bool accept_truncated = false;
    bool quiet = false;
};

struct Denoising {
    using TakeFrames = std::function<void(const int16_t* frames, int64_t count)>;

    AudioInput input;
    vqns_stream::Channels streams;
    LevelMeter meter;
    bool constant_delay = false;  // lead-in silence instead of alignment, and no flush
    TakeFrames before, after;     // get the interleaved frames of the input and of the result
    std::function<void(const vqns_stream::Hop&)> hop;  // gets the hops, as the meter does
    double seconds = 0;                                // spent on reading and denoising

    Denoising() = default;
    Denoising(const Denoising&) = delete;  // the streams know where it is
    Denoising& operator=(const Denoising&) = delete;
};

// Both throw Failure. What gets the frames is chosen in between; what is not chosen gets nothing.
void open_denoising(Denoising& d, const DenoisingOptions& options);
void run_denoising(Denoising& d, bool quiet);

// Prints what was done on standard error. `elapsed`: seconds that it took.
void summarise(const Denoising& d, const std::string& out, double elapsed);

}  // namespace vqns_tool

#endif
