#include "denoise_settings.h"

#include <limits>

namespace {

enum { kAttenuationLimit = 1, kLevel, kBypass, kDetectorMode, kPostMessages, kMinSpeech, kMinPause };
static_assert(kMinPause == kSettings);

GParamFlags flags(int more) {
    return static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | more);
}

}  // namespace

void install_settings(GObjectClass* object) {
    const GParamFlags playing = flags(GST_PARAM_MUTABLE_PLAYING);
    const GParamFlags automatic = flags(GST_PARAM_MUTABLE_PLAYING | GST_PARAM_CONTROLLABLE);
    const auto install = [&](guint id, GParamSpec* spec) {
        g_object_class_install_property(object, id, spec);
    };
    install(kAttenuationLimit,
            g_param_spec_double("attenuation-limit", "Attenuation limit",
                                "How far noise may be turned down, in dB; 100 is without limit", 0, kNoLimit,
                                kNoLimit, automatic));
    install(kLevel, g_param_spec_boolean("level", "Level", "Bring speech to an even level", TRUE, automatic));
    install(kBypass, g_param_spec_boolean("bypass", "Bypass",
                                          "Give the input back, as late as ever; cross-faded over 10 ms",
                                          FALSE, automatic));
    install(kDetectorMode,
            g_param_spec_int("detector-mode", "Detector mode",
                             "For the messages: 0 misses least speech .. 3 lets least noise through", 0, 3, 2,
                             flags(GST_PARAM_MUTABLE_READY)));
    install(kPostMessages, g_param_spec_boolean("post-messages", "Post messages",
                                                "Post vqns-speech-start and vqns-speech-end element messages",
                                                TRUE, playing));
    install(kMinSpeech,
            g_param_spec_uint("min-speech", "Least speech",
                              "Shorter stretches of speech are not told of, in ms", 0, 60000, 100, playing));
    install(kMinPause, g_param_spec_uint("min-pause", "Least pause",
                                         "Shorter pauses do not end speech, in ms", 0, 60000, 300, playing));
}

bool set_setting(DenoiseSettings& settings, guint property, const GValue* value) {
    switch (property) {
        case kAttenuationLimit:
            settings.attenuation_limit = g_value_get_double(value);
            return true;
        case kLevel:
            settings.level = g_value_get_boolean(value) != FALSE;
            return true;
        case kBypass:
            settings.bypass = g_value_get_boolean(value) != FALSE;
            return true;
        case kDetectorMode:
            settings.detector_mode = g_value_get_int(value);
            return true;
        case kPostMessages:
            settings.post_messages = g_value_get_boolean(value) != FALSE;
            return true;
        case kMinSpeech:
            settings.min_speech = g_value_get_uint(value);
            return true;
        case kMinPause:
            settings.min_pause = g_value_get_uint(value);
            return true;
        default:
            return false;
    }
}

bool get_setting(const DenoiseSettings& settings, guint property, GValue* value) {
    switch (property) {
        case kAttenuationLimit:
            g_value_set_double(value, settings.attenuation_limit);
            return true;
        case kLevel:
            g_value_set_boolean(value, settings.level);
            return true;
        case kBypass:
            g_value_set_boolean(value, settings.bypass);
            return true;
        case kDetectorMode:
            g_value_set_int(value, settings.detector_mode);
            return true;
        case kPostMessages:
            g_value_set_boolean(value, settings.post_messages);
            return true;
        case kMinSpeech:
            g_value_set_uint(value, settings.min_speech);
            return true;
        case kMinPause:
            g_value_set_uint(value, settings.min_pause);
            return true;
        default:
            return false;
    }
}

vqns_stream::Options options_of(const DenoiseSettings& settings) {
    vqns_stream::Options options;
    const double limit = settings.attenuation_limit;
    options.attenuation_limit = limit < kNoLimit ? limit : std::numeric_limits<double>::infinity();
    options.level = settings.level;
    options.bypass = settings.bypass;
    options.detector_mode = settings.detector_mode;
    return options;
}

SpeechRules rules_of(const DenoiseSettings& settings) {
    return {settings.min_speech / 1000.0, settings.min_pause / 1000.0};
}
