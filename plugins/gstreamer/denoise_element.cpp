#include "denoise_element.h"

#include <gst/audio/gstaudiofilter.h>

#include <algorithm>
#include <atomic>
#include <exception>

#include "denoise_run.h"
#include "denoise_settings.h"

GST_DEBUG_CATEGORY_STATIC(vqns_denoise_debug);
#define GST_CAT_DEFAULT vqns_denoise_debug

namespace {

constexpr GstClockTime kLongestGap = GST_SECOND;  // of silence that is played through the streams
constexpr guint kLatency = kSettings + 1;         // property
constexpr int64_t kSilenceBlock = 4096;           // frames

// Beside the settings and the latency, all belongs to the streaming thread.
struct State {
    DenoiseSettings settings;
    std::atomic<GstClockTime> latency = 0;
    DenoiseRun run;
    bool fresh = false;  // the streams are open and have heard nothing of another run
};

}  // namespace

struct VqnsDenoise {
    GstAudioFilter parent;
    State* state;
};

struct VqnsDenoiseClass {
    GstAudioFilterClass parent_class;
};

G_DEFINE_TYPE(VqnsDenoise, vqns_denoise, GST_TYPE_AUDIO_FILTER)

namespace {

VqnsDenoise* self_of(gpointer object) {
    return static_cast<VqnsDenoise*>(object);
}

// Changes of speech

void post_changes(VqnsDenoise* self) {
    State& state = *self->state;
    const GstSegment& segment = GST_BASE_TRANSFORM(self)->segment;
    for (const SpeechChange& change : state.run.changes) {
        if (!state.settings.post_messages) break;
        const GstClockTime time = time_of(state.run, change.time);
        GstClockTime stream_time = GST_CLOCK_TIME_NONE, running_time = GST_CLOCK_TIME_NONE;
        if (segment.format == GST_FORMAT_TIME) {
            stream_time = gst_segment_to_stream_time(&segment, GST_FORMAT_TIME, time);
            running_time = gst_segment_to_running_time(&segment, GST_FORMAT_TIME, time);
        }
        GstStructure* structure = gst_structure_new(
            change.speech ? "vqns-speech-start" : "vqns-speech-end", "channel", G_TYPE_INT, change.channel,
            "timestamp", GST_TYPE_CLOCK_TIME, time, "stream-time", GST_TYPE_CLOCK_TIME, stream_time,
            "running-time", GST_TYPE_CLOCK_TIME, running_time, nullptr);
        gst_element_post_message(GST_ELEMENT(self), gst_message_new_element(GST_OBJECT(self), structure));
    }
    state.run.changes.clear();
}

// Runs: from a start of the streams to a drain

bool start_run(VqnsDenoise* self, const GstAudioInfo& info) {
    State& state = *self->state;
    state.fresh = false;
    try {
        open_run(state.run, info, options_of(state.settings));
    } catch (const std::exception& e) {
        GST_ELEMENT_ERROR(self, LIBRARY, INIT, (nullptr), ("%s", e.what()));
        return false;
    }
    state.fresh = true;
    return true;
}

void take_up_settings(State& state) {
    set_options(state.run, options_of(state.settings));
    state.run.rules = rules_of(state.settings);
}

bool is_running(const State& state) {
    return state.fresh && state.run.taken_in > 0;
}

GstBuffer* new_silence(const DenoiseRun& run, int64_t frames) {
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, static_cast<gsize>(frames * run.info.bpf), nullptr);
    gst_buffer_memset(buffer, 0, 0, gst_buffer_get_size(buffer));
    return buffer;
}

GstFlowReturn push_silence(VqnsDenoise* self, int64_t frames) {
    GstFlowReturn flow = GST_FLOW_OK;
    for (int64_t count; frames > 0 && flow == GST_FLOW_OK; frames -= count) {
        count = std::min(frames, kSilenceBlock);
        GstBuffer* buffer = new_silence(self->state->run, count);
        flow = denoise_buffer(self->state->run, buffer);
        if (flow == GST_FLOW_OK) {
            flow = gst_pad_push(GST_BASE_TRANSFORM_SRC_PAD(self), buffer);
        } else {
            gst_buffer_unref(buffer);
            if (flow == GST_BASE_TRANSFORM_FLOW_DROPPED) flow = GST_FLOW_OK;
        }
    }
    post_changes(self);
    return flow;
}

void end_run(VqnsDenoise* self) {
    end_speech(self->state->run);
    post_changes(self);
    self->state->fresh = false;
}

// What is still inside goes out.
GstFlowReturn drain(VqnsDenoise* self) {
    State& state = *self->state;
    if (!is_running(state)) return GST_FLOW_OK;
    DenoiseRun& run = state.run;
    run.rules.duration = static_cast<double>(run.taken_in) / run.info.rate;
    const GstFlowReturn flow = push_silence(self, run.latency);
    // The detector judges whole hops only.
    GstBuffer* rest = new_silence(run, run.info.rate / 100);
    denoise_buffer(run, rest);
    gst_buffer_unref(rest);
    end_run(self);
    return flow;
}

// Makes the streams ready for input with this timestamp.
GstFlowReturn line_up(VqnsDenoise* self, GstClockTime timestamp, bool discontinuity) {
    State& state = *self->state;
    if (is_running(state)) {
        const Place place = place_of(state.run, timestamp, discontinuity);
        if (place.kind == Place::kHere) return GST_FLOW_OK;
        if (place.kind == Place::kAhead) {
            GST_DEBUG_OBJECT(self, "filling %" G_GINT64_FORMAT " lost frames", place.lost);
            return push_silence(self, place.lost);
        }
        GST_DEBUG_OBJECT(self, "starting anew at %" GST_TIME_FORMAT, GST_TIME_ARGS(timestamp));
        const GstFlowReturn flow = drain(self);
        if (flow != GST_FLOW_OK) return flow;
    }
    if (!state.fresh && !start_run(self, state.run.info)) return GST_FLOW_ERROR;
    take_up_settings(state);
    place_of(state.run, timestamp, discontinuity);
    return GST_FLOW_OK;
}

// Silence that upstream has no buffers for. False if it is for downstream to deal with.
bool take_gap(VqnsDenoise* self, GstEvent* event) {
    GstClockTime start, duration;
    gst_event_parse_gap(event, &start, &duration);
    if (!is_running(*self->state)) return false;
    if (!GST_CLOCK_TIME_IS_VALID(start) || !GST_CLOCK_TIME_IS_VALID(duration) || duration > kLongestGap) {
        drain(self);
        return false;
    }
    if (line_up(self, start, false) != GST_FLOW_OK) return true;
    push_silence(self, frames_until(self->state->run, start + duration));
    return true;
}

// Base class: format, buffers, events

gboolean setup(GstAudioFilter* filter, const GstAudioInfo* info) {
    VqnsDenoise* self = self_of(filter);
    State& state = *self->state;
    if (is_running(state) && gst_audio_info_is_equal(info, &state.run.info)) return TRUE;
    if (!start_run(self, *info)) return FALSE;
    const GstClockTime latency = gst_util_uint64_scale_ceil(static_cast<guint64>(state.run.latency),
                                                            GST_SECOND, static_cast<guint64>(info->rate));
    if (state.latency.exchange(latency) != latency) {
        gst_element_post_message(GST_ELEMENT(self), gst_message_new_latency(GST_OBJECT(self)));
    }
    return TRUE;
}

gboolean stop(GstBaseTransform* base) {
    State& state = *self_of(base)->state;
    state.run = {};
    state.fresh = false;
    state.latency = 0;
    return TRUE;
}

GstFlowReturn transform_ip(GstBaseTransform* base, GstBuffer* buffer) {
    VqnsDenoise* self = self_of(base);
    const GstClockTime timestamp = GST_BUFFER_PTS(buffer);
    if (gst_buffer_get_size(buffer) == 0) return GST_BASE_TRANSFORM_FLOW_DROPPED;
    if (base->segment.format == GST_FORMAT_TIME && GST_CLOCK_TIME_IS_VALID(timestamp)) {
        // None for what lies before the segment.
        const GstClockTime at = gst_segment_to_stream_time(&base->segment, GST_FORMAT_TIME, timestamp);
        if (GST_CLOCK_TIME_IS_VALID(at)) gst_object_sync_values(GST_OBJECT(self), at);
    }
    GstFlowReturn flow = line_up(self, timestamp, GST_BUFFER_IS_DISCONT(buffer));
    if (flow != GST_FLOW_OK) return flow;
    take_up_settings(*self->state);
    flow = denoise_buffer(self->state->run, buffer);
    post_changes(self);
    return flow;
}

// Whether an event says what holds already, so that the sound goes on.
bool changes_nothing(GstBaseTransform* base, GstEvent* event) {
    if (GST_EVENT_TYPE(event) == GST_EVENT_SEGMENT) {
        GstSegment segment;
        gst_event_copy_segment(event, &segment);
        segment.position = base->segment.position;  // moves with the sound
        return gst_segment_is_equal(&segment, &base->segment);
    }
    if (GST_EVENT_TYPE(event) == GST_EVENT_CAPS) {
        GstCaps *caps, *current = gst_pad_get_current_caps(GST_BASE_TRANSFORM_SINK_PAD(base));
        gst_event_parse_caps(event, &caps);
        const bool equal = current != nullptr && gst_caps_is_equal(caps, current);
        gst_clear_caps(&current);
        return equal;
    }
    return false;
}

gboolean sink_event(GstBaseTransform* base, GstEvent* event) {
    VqnsDenoise* self = self_of(base);
    switch (GST_EVENT_TYPE(event)) {
        case GST_EVENT_STREAM_START:
        case GST_EVENT_CAPS:
        case GST_EVENT_SEGMENT:
        case GST_EVENT_SEGMENT_DONE:
        case GST_EVENT_EOS:
            if (!changes_nothing(base, event)) drain(self);
            break;
        case GST_EVENT_FLUSH_STOP:
            if (is_running(*self->state)) end_run(self);
            break;
        case GST_EVENT_GAP:
            if (!take_gap(self, event)) break;
            gst_event_unref(event);
            return TRUE;
        default:
            break;
    }
    return GST_BASE_TRANSFORM_CLASS(vqns_denoise_parent_class)->sink_event(base, event);
}

gboolean query(GstBaseTransform* base, GstPadDirection direction, GstQuery* query) {
    if (direction != GST_PAD_SRC || GST_QUERY_TYPE(query) != GST_QUERY_LATENCY) {
        return GST_BASE_TRANSFORM_CLASS(vqns_denoise_parent_class)->query(base, direction, query);
    }
    if (!gst_pad_peer_query(GST_BASE_TRANSFORM_SINK_PAD(base), query)) return FALSE;
    gboolean live;
    GstClockTime least, most;
    gst_query_parse_latency(query, &live, &least, &most);
    const GstClockTime own = self_of(base)->state->latency;
    gst_query_set_latency(query, live, least + own, GST_CLOCK_TIME_IS_VALID(most) ? most + own : most);
    return TRUE;
}

// Objects and their class

void set_property(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
    if (!set_setting(self_of(object)->state->settings, id, value)) {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    }
}

void get_property(GObject* object, guint id, GValue* value, GParamSpec* spec) {
    const State& state = *self_of(object)->state;
    if (id == kLatency) {
        g_value_set_uint64(value, state.latency);
    } else if (!get_setting(state.settings, id, value)) {
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
    }
}

void finalize(GObject* object) {
    delete self_of(object)->state;
    G_OBJECT_CLASS(vqns_denoise_parent_class)->finalize(object);
}

constexpr char kCaps[] =
    "audio/x-raw, format = (string) { " GST_AUDIO_NE(S16) ", " GST_AUDIO_NE(F32) " }, "
    "layout = (string) interleaved, rate = (int) [ 8000, 192000 ], channels = (int) [ 1, 64 ]";

}  // namespace

static void vqns_denoise_class_init(VqnsDenoiseClass* klass) {
    GST_DEBUG_CATEGORY_INIT(vqns_denoise_debug, "vqnsdenoise", 0, "Noise suppression");
    GObjectClass* object = G_OBJECT_CLASS(klass);
    object->set_property = set_property;
    object->get_property = get_property;
    object->finalize = finalize;
    install_settings(object);
    g_object_class_install_property(
        object, kLatency,
        g_param_spec_uint64("latency", "Latency", "Delay at the rate in use, in ns; 0 before it is known", 0,
                            G_MAXUINT64, 0,
                            static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS)));

    GstBaseTransformClass* base = GST_BASE_TRANSFORM_CLASS(klass);
    base->stop = stop;
    base->transform_ip = transform_ip;
    base->sink_event = sink_event;
    base->query = query;
    GST_AUDIO_FILTER_CLASS(klass)->setup = setup;

    GstCaps* caps = gst_caps_from_string(kCaps);
    gst_audio_filter_class_add_pad_templates(GST_AUDIO_FILTER_CLASS(klass), caps);
    gst_caps_unref(caps);
    gst_element_class_set_static_metadata(
        GST_ELEMENT_CLASS(klass), "Speech denoiser", "Filter/Effect/Audio",
        "Takes noise out of speech, brings it to an even level and tells when it starts and ends",
        "the vqns authors");
}

static void vqns_denoise_init(VqnsDenoise* self) {
    self->state = []() noexcept { return new State; }();  // or the program ends, as elsewhere in GLib
}
