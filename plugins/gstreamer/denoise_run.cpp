#include "denoise_run.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace {

// Sinks let as much pass before they resynchronise.
constexpr GstClockTimeDiff kMostDrift = 40 * GST_MSECOND;
// Containers may keep timestamps in milliseconds.
constexpr GstClockTimeDiff kMostRounding = GST_MSECOND;
// A longer hole is no hole in a conversation.
constexpr GstClockTimeDiff kLongestFill = GST_SECOND;

GstClockTimeDiff duration_of(const DenoiseRun& run, int64_t frames) {
    return static_cast<GstClockTimeDiff>(gst_util_uint64_scale_round(static_cast<guint64>(frames), GST_SECOND,
                                                                     static_cast<guint64>(run.info.rate)));
}

int64_t frames_in(const DenoiseRun& run, GstClockTimeDiff duration) {
    return static_cast<int64_t>(gst_util_uint64_scale_round(static_cast<guint64>(duration),
                                                            static_cast<guint64>(run.info.rate), GST_SECOND));
}

GstClockTime timestamp_at(const DenoiseRun& run, GstClockTimeDiff since_anchor) {
    if (!GST_CLOCK_STIME_IS_VALID(run.anchor)) return GST_CLOCK_TIME_NONE;
    return static_cast<GstClockTime>(std::max<GstClockTimeDiff>(run.anchor + since_anchor, 0));
}

void observe(void* context, const vqns_stream::Hop& hop) {
    auto& run = *static_cast<DenoiseRun*>(context);
    track(run.trackers[static_cast<size_t>(hop.channel)], run.rules, hop, run.changes);
}

void stamp(DenoiseRun& run, GstBuffer* buffer, int64_t frames) {
    const GstClockTimeDiff start = duration_of(run, run.put_out);
    run.put_out += frames;
    GST_BUFFER_PTS(buffer) = timestamp_at(run, start);
    GST_BUFFER_DTS(buffer) = GST_CLOCK_TIME_NONE;
    GST_BUFFER_DURATION(buffer) = static_cast<GstClockTime>(duration_of(run, run.put_out) - start);
    // What comes out of silence may be the sound before it.
    GST_BUFFER_FLAG_UNSET(buffer, GST_BUFFER_FLAG_GAP);
    GST_BUFFER_OFFSET(buffer) = GST_BUFFER_OFFSET_NONE;
    GST_BUFFER_OFFSET_END(buffer) = GST_BUFFER_OFFSET_NONE;
}

}  // namespace

void open_run(DenoiseRun& run, const GstAudioInfo& info, vqns_stream::Options options) {
    options.observer = observe;
    options.context = &run;
    vqns_stream::Channels streams = vqns_stream::open_channels(info.rate, info.channels, options);
    run.info = info;
    run.streams = std::move(streams);
    run.latency = vqns_stream::latency(run.streams);
    run.anchor = GST_CLOCK_STIME_NONE;
    run.taken_in = run.put_out = 0;
    run.attenuation_limit = options.attenuation_limit;
    run.trackers.assign(static_cast<size_t>(info.channels), {});
    run.changes.clear();
}

void set_options(DenoiseRun& run, const vqns_stream::Options& options) {
    for (auto& stream : run.streams.streams) {
        vqns_stream::set_level(stream.get(), options.level);
        vqns_stream::set_bypass(stream.get(), options.bypass);
        if (options.attenuation_limit != run.attenuation_limit) {
            vqns_stream::set_attenuation_limit(stream.get(), options.attenuation_limit);
        }
    }
    run.attenuation_limit = options.attenuation_limit;
}

GstFlowReturn denoise_buffer(DenoiseRun& run, GstBuffer* buffer) noexcept {
    GstMapInfo map;
    if (!gst_buffer_map(buffer, &map, GST_MAP_READWRITE)) return GST_FLOW_ERROR;
    const auto frame_size = static_cast<size_t>(run.info.bpf);
    const auto frames = static_cast<int64_t>(map.size / frame_size);
    // Room for a change in every hop of every channel, so that none allocates amid the processing.
    const int64_t hops = frames * 100 / run.info.rate + 2;
    run.changes.reserve(run.changes.size() + static_cast<size_t>(hops) * run.trackers.size());
    if (GST_AUDIO_INFO_IS_FLOAT(&run.info)) {
        vqns_stream::process(run.streams, reinterpret_cast<float*>(map.data), frames);
    } else {
        vqns_stream::process(run.streams, reinterpret_cast<int16_t*>(map.data), frames);
    }
    gst_buffer_unmap(buffer, &map);

    const int64_t left_out = std::clamp<int64_t>(run.latency - run.taken_in, 0, frames);
    run.taken_in += frames;
    if (left_out == frames) return GST_BASE_TRANSFORM_FLOW_DROPPED;
    gst_buffer_resize(buffer, static_cast<gssize>(static_cast<size_t>(left_out) * frame_size),
                      static_cast<gssize>(static_cast<size_t>(frames - left_out) * frame_size));
    stamp(run, buffer, frames - left_out);
    return GST_FLOW_OK;
}

Place place_of(DenoiseRun& run, GstClockTime timestamp, bool discontinuity) {
    if (!GST_CLOCK_TIME_IS_VALID(timestamp)) return {Place::kHere};
    const auto time = static_cast<GstClockTimeDiff>(timestamp);
    if (run.taken_in == 0 || !GST_CLOCK_STIME_IS_VALID(run.anchor)) {
        run.anchor = time - duration_of(run, run.taken_in);
    }
    const GstClockTimeDiff off = time - (run.anchor + duration_of(run, run.taken_in));
    if (std::abs(off) <= (discontinuity ? kMostRounding : kMostDrift)) {
        if (std::abs(off) > duration_of(run, 1)) run.anchor += off;
        return {Place::kHere};
    }
    if (off > 0 && off <= kLongestFill) return {Place::kAhead, frames_until(run, timestamp)};
    return {Place::kElsewhere};
}

int64_t frames_until(const DenoiseRun& run, GstClockTime time) {
    if (!GST_CLOCK_STIME_IS_VALID(run.anchor)) return 0;
    const GstClockTimeDiff since_anchor = static_cast<GstClockTimeDiff>(time) - run.anchor;
    return std::max<int64_t>(frames_in(run, std::max<GstClockTimeDiff>(since_anchor, 0)) - run.taken_in, 0);
}

GstClockTime time_of(const DenoiseRun& run, double seconds) {
    return timestamp_at(run, std::llround(seconds * GST_SECOND));
}

void end_speech(DenoiseRun& run) {
    for (size_t c = 0; c < run.trackers.size(); ++c) {
        end_speech(run.trackers[c], static_cast<int>(c), run.changes);
    }
}
