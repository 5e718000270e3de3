#include <algorithm>
#include <cmath>

#include "channel_streams.h"
#include "commands.h"
#include "failure.h"
#include "progress.h"
#include "stream_timing.h"

namespace vqns_tool {
namespace {

enum { kBlock = 4096 };  // frames
constexpr double kHopSeconds = static_cast<double>(vqns_stream::kHopSize) / vqns_stream::kEngineRate;

// Hops with speech in any channel. The channels report block by block, so their hops interleave.
struct Collector {
    double first = 0;  // time of hop 0
    std::vector<bool> speech;
};

void collect(void* context, const vqns_stream::Hop& hop) {
    auto& collector = *static_cast<Collector*>(context);
    if (collector.speech.empty()) collector.first = hop.time;
    const auto index = static_cast<size_t>(std::lround((hop.time - collector.first) / kHopSeconds));
    if (index >= collector.speech.size()) collector.speech.resize(index + 1);
    if (hop.speech) collector.speech[index] = true;
}

std::vector<Segment> segments_of(const Collector& collector) {
    std::vector<Segment> segments;
    for (size_t i = 0; i < collector.speech.size(); ++i) {
        if (!collector.speech[i]) continue;
        const double start = collector.first + static_cast<double>(i) * kHopSeconds;
        segments.push_back({start, start + kHopSeconds});
    }
    return segments;
}

}  // namespace

void vad(const VadOptions& options) {
    AudioInput input = open_input(options.in, options.raw, options.accept_truncated);
    Collector collector;
    vqns_stream::Options stream_options;
    stream_options.level = false;
    stream_options.detector_mode = options.mode;
    stream_options.observer = collect;
    stream_options.context = &collector;
    ChannelStreams streams = open_channels(input.name, input.rate, input.channels, stream_options);
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
    const auto segments = tidy(segments_of(collector), duration, options.min_pause, options.min_speech);
    print_result(format_segments(segments, options.format, input.name, duration));
}

}  // namespace vqns_tool
