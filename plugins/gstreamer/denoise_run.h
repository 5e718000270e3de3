// denoise_run.h - sound on its way through the streams, from a start to a drain: which frame of the output is
// which frame of the input, and which timestamp it carries.
#ifndef VQNS_DENOISE_RUN_H
#define VQNS_DENOISE_RUN_H

#include <gst/audio/audio.h>
#include <gst/base/gstbasetransform.h>

#include <vector>

#include "speech_tracker.h"
#include "vqns_channels.h"

struct DenoiseRun {
    GstAudioInfo info = {};
    vqns_stream::Channels streams;
    int64_t latency = 0;  // frames
    GstClockTimeDiff anchor =
        GST_CLOCK_STIME_NONE;             // timestamp of the first frame; drift may take it below 0
    int64_t taken_in = 0, put_out = 0;    // frames
    double attenuation_limit = 0;         // as set in the streams
    std::vector<SpeechTracker> trackers;  // one a channel
    SpeechRules rules = {};
    std::vector<SpeechChange> changes;  // not told yet
};

// Throws as vqns_stream::open does. The streams report to `run`, which must stay where it is.
void open_run(DenoiseRun& run, const GstAudioInfo& info, vqns_stream::Options options);

// From the next hop on.
void set_options(DenoiseRun& run, const vqns_stream::Options& options);

// Denoises the frames in a writable buffer in place, takes out those ahead of the first frame of the input,
// and gives it the timestamp of what is then in it. GST_BASE_TRANSFORM_FLOW_DROPPED if that is nothing.
GstFlowReturn denoise_buffer(DenoiseRun& run, GstBuffer* buffer) noexcept;

// Where the input stands.
struct Place {
    enum { kHere, kAhead, kElsewhere } kind;
    int64_t lost = 0;  // kAhead: frames between what was taken in and what comes now
};
// A buffer with this timestamp is next. Takes a small difference for jitter or drift of the clock, and
// follows it; not so after a discontinuity, where it is sound that was lost.
Place place_of(DenoiseRun& run, GstClockTime timestamp, bool discontinuity);

// Frames from what was taken in to a time.
int64_t frames_until(const DenoiseRun& run, GstClockTime time);

GstClockTime time_of(const DenoiseRun& run, double seconds);  // timestamp of a moment of the input

// Ends the speech of all channels.
void end_speech(DenoiseRun& run);

#endif
