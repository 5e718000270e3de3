// speech_tracker.h - when speech starts and ends in one channel, told as soon as it is certain.
//
// A stretch of speech counts from its first hop once it has lasted min_speech; pauses shorter than min_pause
// belong to it. These are the segments that vqns_stream::tidy makes of the same hops, without their future.
#ifndef VQNS_SPEECH_TRACKER_H
#define VQNS_SPEECH_TRACKER_H

#include <limits>
#include <vector>

#include "vqns_stream.h"

struct SpeechChange {
    int channel;
    bool speech;
    double time;  // seconds of the stream's input
};

struct SpeechTracker {
    bool open = false;  // speech, or a pause that may still turn out to be short
    bool told = false;  // that it started
    double start = 0, end = 0;
};

struct SpeechRules {
    double min_speech, min_pause;                               // seconds
    double duration = std::numeric_limits<double>::infinity();  // of the input, once known
};

// Each adds one change to `changes` at most.
void track(SpeechTracker& tracker, const SpeechRules& rules, const vqns_stream::Hop& hop,
           std::vector<SpeechChange>& changes);
void end_speech(SpeechTracker& tracker, int channel, std::vector<SpeechChange>& changes);

#endif
