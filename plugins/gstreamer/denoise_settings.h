// denoise_settings.h - the properties that a user sets on the element.
#ifndef VQNS_DENOISE_SETTINGS_H
#define VQNS_DENOISE_SETTINGS_H

#include <gst/gst.h>

#include <atomic>

#include "speech_tracker.h"
#include "vqns_stream.h"

constexpr double kNoLimit = 100;  // dB of attenuation, which stands for any
constexpr guint kSettings = 7;    // properties, with the numbers 1 to 7

// Set on any thread, taken up by the streaming thread buffer by buffer.
struct DenoiseSettings {
    std::atomic<double> attenuation_limit = kNoLimit;
    std::atomic<bool> level = true, bypass = false;
    std::atomic<int> detector_mode = 2;
    std::atomic<bool> post_messages = true;
    std::atomic<guint> min_speech = 100, min_pause = 300;  // ms
};

void install_settings(GObjectClass* object);
// False if there is no such property.
bool set_setting(DenoiseSettings& settings, guint property, const GValue* value);
bool get_setting(const DenoiseSettings& settings, guint property, GValue* value);

vqns_stream::Options options_of(const DenoiseSettings& settings);
SpeechRules rules_of(const DenoiseSettings& settings);

#endif
