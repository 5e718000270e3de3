#include "speech_segments.h"

#include <algorithm>
#include <cmath>

namespace vqns_stream {

void add_hop(SpeechHops& hops, const Hop& hop) {
    if (hops.speech.empty()) hops.first = hop.time;
    const auto index = static_cast<size_t>(std::lround((hop.time - hops.first) / kHopSeconds));
    if (index >= hops.speech.size()) hops.speech.resize(index + 1);
    if (hop.speech) hops.speech[index] = true;
}

std::vector<Segment> segments_of(const SpeechHops& hops) {
    std::vector<Segment> segments;
    for (size_t i = 0; i < hops.speech.size(); ++i) {
        if (!hops.speech[i]) continue;
        const double start = hops.first + static_cast<double>(i) * kHopSeconds;
        segments.push_back({start, start + kHopSeconds});
    }
    return segments;
}

std::vector<Segment> tidy(const std::vector<Segment>& raw, double duration, double min_pause,
                          double min_speech) {
    constexpr double kRounding = 1e-9;
    std::vector<Segment> joined;
    for (Segment s : raw) {
        s = {std::max(s.start, 0.0), std::min(s.end, duration)};
        if (s.end <= s.start) continue;
        if (!joined.empty() && s.start - joined.back().end < std::max(min_pause - kRounding, kRounding)) {
            joined.back().end = std::max(joined.back().end, s.end);
        } else {
            joined.push_back(s);
        }
    }
    std::erase_if(joined, [&](const Segment& s) { return s.end - s.start < min_speech - kRounding; });
    return joined;
}

}  // namespace vqns_stream
