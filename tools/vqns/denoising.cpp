#include "denoising.h"

#include <algorithm>
#include <cstdio>

#include "commands.h"
#include "progress.h"

namespace vqns_tool {
namespace {

enum { kBlock = 4096 };  // frames

int64_t read_and_process(Denoising& d, std::vector<int16_t>& block) {
    auto start = std::chrono::steady_clock::now();
    const int64_t count = read_frames(d.input, block.data(), kBlock);
    d.seconds += seconds_since(start);
    if (count < 1) return 0;
    if (d.before) d.before(block.data(), count);
    start = std::chrono::steady_clock::now();
    process(d.streams, block.data(), count);
    d.seconds += seconds_since(start);
    return count;
}

// Passes on what comes out, less the frames ahead of the first that belongs to the input.
void pass_on(const Denoising& d, int64_t& ahead, const int16_t* frames, int64_t count) {
    const int64_t dropped = std::min(ahead, count);
    ahead -= dropped;
    if (count > dropped && d.after) d.after(frames + dropped * d.input.channels, count - dropped);
}

}  // namespace

void open_denoising(Denoising& d, const DenoisingOptions& options) {
    d.input = open_input(options.in, options.raw, options.accept_truncated);
    vqns_stream::Options stream_options;
    stream_options.attenuation_limit = options.attenuation_limit;
    stream_options.level = options.level;
    stream_options.context = &d;
    stream_options.observer = [](void* context, const vqns_stream::Hop& hop) {
        auto& denoising = *static_cast<Denoising*>(context);
        meter_hop(denoising.meter, hop);
        if (denoising.hop) denoising.hop(hop);
    };
    d.streams = open_channels(d.input.name, d.input.rate, d.input.channels, stream_options);
}

void run_denoising(Denoising& d, bool quiet) {
    const int64_t late = latency(d.streams);
    int64_t ahead = d.constant_delay ? 0 : late;
    std::vector<int16_t> block(static_cast<size_t>(kBlock) * static_cast<size_t>(d.input.channels));
    Progress progress(d.input.frames, quiet);
    for (int64_t count; (count = read_and_process(d, block)) > 0;) {
        pass_on(d, ahead, block.data(), count);
        show_progress(progress, d.input.frames_read);
    }
    d.meter.end = seconds_read(d.input);
    for (int64_t left = d.constant_delay ? 0 : late; left > 0; left -= kBlock) {
        const int64_t count = std::min<int64_t>(left, kBlock);
        std::fill(block.begin(), block.end(), int16_t{0});
        const auto start = std::chrono::steady_clock::now();
        process(d.streams, block.data(), count);
        d.seconds += seconds_since(start);
        pass_on(d, ahead, block.data(), count);
    }
}

void summarise(const Denoising& d, const std::string& out, double elapsed) {
    const double duration = seconds_read(d.input);
    std::fprintf(stderr,
                 "%s -> %s\n"
                 "  duration       %.2f s, %d Hz, %d channel%s\n"
                 "  time taken     %.2f s, real-time factor %.3f\n"
                 "  speech         %s; %.0f %% of the time\n"
                 "  speech pauses  %s\n"
                 "  (rms of 10 ms pieces at 16 kHz, the same pieces before and after, sorted by the voice\n"
                 "  detector on the denoised signal; 0 dBFS is full scale)\n",
                 d.input.name.c_str(), out.c_str(), duration, d.input.rate, d.input.channels,
                 d.input.channels == 1 ? "" : "s", elapsed, elapsed / duration,
                 describe(d.meter.speech).c_str(), 100 * speech_share(d.meter),
                 describe(d.meter.pauses).c_str());
}

}  // namespace vqns_tool
