// speech_segments.h - stretches of speech, from the hops of streams.
#ifndef VQNS_SPEECH_SEGMENTS_H
#define VQNS_SPEECH_SEGMENTS_H

#include <vector>

#include "vqns_stream.h"

namespace vqns_stream {

struct Segment {
    double start, end;  // seconds
};

// Hops with speech in any stream. The channels of a sound report block by block, so their hops interleave.
struct SpeechHops {
    double first = 0;  // time of hop 0
    std::vector<bool> speech;
};

void add_hop(SpeechHops& hops, const Hop& hop);

// One a hop with speech.
std::vector<Segment> segments_of(const SpeechHops& hops);

// In order of time. Pauses shorter than min_pause are bridged first; what is then shorter than min_speech is
// left out. Segments are cut to 0..duration.
std::vector<Segment> tidy(const std::vector<Segment>& raw, double duration, double min_pause,
                          double min_speech);

}  // namespace vqns_stream

#endif
