#include <algorithm>

#include "commands.h"
#include "failure.h"
#include "progress.h"

namespace vqns_tool {
namespace {

enum { kBlock = 4096 };  // frames

}  // namespace

void vad(const VadOptions& options) {
    AudioInput input = open_input(options.in, options.raw, options.accept_truncated);
    vqns_stream::SpeechHops hops;
    vqns_stream::Options stream_options;
    stream_options.level = false;
    stream_options.detector_mode = options.mode;
    stream_options.observer = [](void* context, const vqns_stream::Hop& hop) {
        add_hop(*static_cast<vqns_stream::SpeechHops*>(context), hop);
    };
    stream_options.context = &hops;
    vqns_stream::Channels streams = open_channels(input.name, input.rate, input.channels, stream_options);
    std::vector<int16_t> block(static_cast<size_t>(kBlock) * static_cast<size_t>(input.channels));
    {
        Progress progress(input.frames, options.quiet);
        for (int64_t count; (count = read_frames(input, block.data(), kBlock)) > 0;) {
            process(streams, block.data(), count);
            show_progress(progress, input.frames_read);
        }
    }
    // What is still inside: the delay, and a hop that is not complete.
    for (int64_t left = latency(streams) + input.rate / 100; left > 0; left -= kBlock) {
        std::fill(block.begin(), block.end(), int16_t{0});
        process(streams, block.data(), std::min<int64_t>(left, kBlock));
    }
    check_end(input);
    const double duration = seconds_read(input);
    const auto segments = tidy(segments_of(hops), duration, options.min_pause, options.min_speech);
    print_result(format_segments(segments, options.format, input.name, duration));
}

}  // namespace vqns_tool
