#include "speech_tracker.h"

#include <algorithm>

namespace {

constexpr double kRounding = 1e-9;

}  // namespace

void track(SpeechTracker& tracker, const SpeechRules& rules, const vqns_stream::Hop& hop,
           std::vector<SpeechChange>& changes) {
    const double start = std::max(hop.time, 0.0);
    const double end = std::min(hop.time + vqns_stream::kHopSeconds, rules.duration);
    if (end <= start) return;
    if (!hop.speech) {
        if (tracker.open && end - tracker.end >= rules.min_pause - kRounding) {
            end_speech(tracker, hop.channel, changes);
        }
        return;
    }
    if (!tracker.open) tracker = {true, false, start, end};
    tracker.end = end;
    if (!tracker.told && end - tracker.start >= rules.min_speech - kRounding) {
        tracker.told = true;
        changes.push_back({hop.channel, true, tracker.start});
    }
}

void end_speech(SpeechTracker& tracker, int channel, std::vector<SpeechChange>& changes) {
    if (tracker.told) changes.push_back({channel, false, tracker.end});
    tracker = {};
}
