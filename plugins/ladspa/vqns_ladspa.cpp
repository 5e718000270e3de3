// vqns_ladspa.cpp - noise suppression as LADSPA plugins: vqns_mono and vqns_stereo.
#include <ladspa.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <exception>
#include <iterator>
#include <limits>
#include <memory>

#include "vqns_channels.h"

namespace {

// The audio ports stand last, in pairs, so that both plugins share one table.
enum Port { kLimit, kLevelling, kBypass, kLatency, kAudio };
enum { kMostChannels = 2, kMostPorts = kAudio + 2 * kMostChannels };

constexpr float kNoLimit = 100;

constexpr LADSPA_PortDescriptor kControlIn = LADSPA_PORT_CONTROL | LADSPA_PORT_INPUT;
constexpr LADSPA_PortDescriptor kControlOut = LADSPA_PORT_CONTROL | LADSPA_PORT_OUTPUT;
constexpr LADSPA_PortDescriptor kAudioIn = LADSPA_PORT_AUDIO | LADSPA_PORT_INPUT;
constexpr LADSPA_PortDescriptor kAudioOut = LADSPA_PORT_AUDIO | LADSPA_PORT_OUTPUT;

constexpr LADSPA_PortDescriptor kPorts[kMostPorts] = {kControlIn, kControlIn, kControlIn, kControlOut,
                                                      kAudioIn,   kAudioOut,  kAudioIn,   kAudioOut};

constexpr LADSPA_PortRangeHint kHints[kMostPorts] = {
    {LADSPA_HINT_BOUNDED_BELOW | LADSPA_HINT_BOUNDED_ABOVE | LADSPA_HINT_DEFAULT_MAXIMUM, 0, kNoLimit},
    {LADSPA_HINT_TOGGLED | LADSPA_HINT_DEFAULT_1, 0, 0},
    {LADSPA_HINT_TOGGLED | LADSPA_HINT_DEFAULT_0, 0, 0},
    {LADSPA_HINT_BOUNDED_BELOW | LADSPA_HINT_INTEGER, -0.1F, 0}};

// Hosts that line tracks up look for an output by the very name "latency".
constexpr const char* kMonoNames[] = {
    "Attenuation limit (dB)", "Levelling", "Bypass", "latency", "Input", "Output"};
constexpr const char* kStereoNames[] = {"Attenuation limit (dB)",
                                        "Levelling",
                                        "Bypass",
                                        "latency",
                                        "Input left",
                                        "Output left",
                                        "Input right",
                                        "Output right"};

struct Plugin {
    int rate = 0;
    vqns_stream::Channels channels;
    bool fresh = true;  // nothing has run through `channels` yet
    LADSPA_Data* ports[kMostPorts] = {};
};

LADSPA_Handle instantiate(const LADSPA_Descriptor* descriptor, unsigned long rate) {
    if (rate < vqns_stream::kLowestRate || rate > vqns_stream::kHighestRate) return nullptr;
    try {
        auto plugin = std::make_unique<Plugin>();
        plugin->rate = static_cast<int>(rate);
        const int channels = static_cast<int>(descriptor->PortCount - kAudio) / 2;
        plugin->channels = vqns_stream::open_channels(plugin->rate, channels, {});
        return plugin.release();
    } catch (const std::exception&) {
        return nullptr;
    }
}

void connect_port(LADSPA_Handle handle, unsigned long port, LADSPA_Data* location) {
    if (port < kMostPorts) static_cast<Plugin*>(handle)->ports[port] = location;
}

void activate(LADSPA_Handle handle) {
    auto& plugin = *static_cast<Plugin*>(handle);
    if (plugin.fresh) return;
    try {
        plugin.channels =
            vqns_stream::open_channels(plugin.rate, static_cast<int>(plugin.channels.streams.size()), {});
        plugin.fresh = true;
    } catch (const std::exception&) {
        // Without memory the old streams go on: some old sound is better than none from here on.
    }
}

// A control's value; for one that is not a number, its default.
float control(const Plugin& plugin, Port port, float standard) {
    const float value = *plugin.ports[port];
    return std::isnan(value) ? standard : value;
}

void follow_controls(Plugin& plugin) {
    const float limit = std::clamp(control(plugin, kLimit, kNoLimit), 0.F, kNoLimit);
    const bool level = control(plugin, kLevelling, 1) > 0;
    const bool bypass = control(plugin, kBypass, 0) > 0;
    for (const auto& stream : plugin.channels.streams) {
        set_attenuation_limit(stream.get(),
                              limit < kNoLimit ? limit : std::numeric_limits<double>::infinity());
        set_level(stream.get(), level);
        set_bypass(stream.get(), bypass);
    }
}

// Every input of a block is read before any output is written, so that ports may share buffers.
void run(LADSPA_Handle handle, unsigned long count) {
    auto& plugin = *static_cast<Plugin*>(handle);
    plugin.fresh = false;
    follow_controls(plugin);
    *plugin.ports[kLatency] = static_cast<float>(vqns_stream::latency(plugin.channels));

    constexpr size_t kBlock = 256;
    float frames[kBlock * kMostChannels];
    const size_t width = plugin.channels.streams.size();
    for (size_t done = 0; done < count; done += kBlock) {
        const size_t block = std::min(count - done, kBlock);
        for (size_t c = 0; c < width; ++c) {
            const float* in = plugin.ports[kAudio + 2 * c] + done;
            for (size_t i = 0; i < block; ++i) frames[i * width + c] = in[i];
        }
        process(plugin.channels, frames, static_cast<int64_t>(block));
        for (size_t c = 0; c < width; ++c) {
            float* out = plugin.ports[kAudio + 2 * c + 1] + done;
            for (size_t i = 0; i < block; ++i) out[i] = frames[i * width + c];
        }
    }
}

void cleanup(LADSPA_Handle handle) {
    delete static_cast<Plugin*>(handle);
}

// Hard real time: run() neither allocates nor locks nor calls the system, and takes at most the time of its
// samples and one hop.
constexpr LADSPA_Descriptor describe(unsigned long id, const char* label, const char* name,
                                     const char* const* port_names, unsigned long ports) {
    LADSPA_Descriptor d = {};
    d.UniqueID = id;
    d.Label = label;
    d.Properties = LADSPA_PROPERTY_HARD_RT_CAPABLE;
    d.Name = name;
    d.Maker = "vqns";
    d.Copyright = "MIT";
    d.PortCount = ports;
    d.PortDescriptors = kPorts;
    d.PortNames = port_names;
    d.PortRangeHints = kHints;
    d.instantiate = instantiate;
    d.connect_port = connect_port;
    d.activate = activate;
    d.run = run;
    d.cleanup = cleanup;
    return d;
}

// Hosts store the numbers in their projects: they never change.
constexpr LADSPA_Descriptor kPlugins[] = {
    describe(0x76716E, "vqns_mono", "vqns noise suppression (mono)", kMonoNames, std::size(kMonoNames)),
    describe(0x76716F, "vqns_stereo", "vqns noise suppression (stereo)", kStereoNames,
             std::size(kStereoNames)),
};

}  // namespace

extern "C" __attribute__((visibility("default"))) const LADSPA_Descriptor* ladspa_descriptor(
    unsigned long index) {
    return index < std::size(kPlugins) ? &kPlugins[index] : nullptr;
}
