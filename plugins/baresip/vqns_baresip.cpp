// vqns_baresip.cpp - noise suppression for baresip's calls: an audio filter module.
#include <cerrno>
#include <charconv>
#include <cmath>
#include <exception>
#include <iterator>
#include <memory>

#include "baresip_filter.h"
#include "vqns_channels.h"

namespace {

struct Direction {
    const char* name;
    bool send, receive;
};
constexpr Direction kDirections[] = {{"send", true, false}, {"receive", false, true}, {"both", true, true}};

struct Word {
    const char* name;
    bool on;
};
constexpr Word kWords[] = {{"yes", true}, {"true", true},   {"1", true},
                           {"no", false}, {"false", false}, {"0", false}};

struct Settings {
    Direction direction = kDirections[0];
    vqns_stream::Options options;
};
Settings settings;  // of the calls to come

// The entry of the table that the config file names, or the one that stands if it has none that is in the
// table.
template <typename Entry, size_t count>
Entry choice(const char* setting, const Entry (&table)[count], Entry standing, const char* allowed) {
    pl value;
    if (conf_get(conf_cur(), setting, &value) != 0) return standing;
    for (const Entry& entry : table)
        if (pl_strcasecmp(&value, entry.name) == 0) return entry;
    warning("vqns: %s is %s, not '%r': taken as %s\n", setting, allowed, &value, standing.name);
    return standing;
}

double attenuation_limit(double standing) {
    pl value;
    if (conf_get(conf_cur(), "vqns_attenuation_limit", &value) != 0) return standing;
    double limit = 0;
    const auto [end, error] = std::from_chars(value.p, value.p + value.l, limit);
    if (error == std::errc() && end == value.p + value.l && limit >= 0) return limit;
    warning("vqns: vqns_attenuation_limit is a number of dB from 0 up, not '%r': taken as none\n", &value);
    return standing;
}

Settings read_settings() {
    Settings read;
    read.direction = choice("vqns_direction", kDirections, read.direction, "send, receive or both");
    read.options.level = choice("vqns_level", kWords, kWords[0], "yes or no").on;
    read.options.attenuation_limit = attenuation_limit(read.options.attenuation_limit);
    return read;
}

void report(const Settings& s) {
    const char* levelling = s.options.level ? "on" : "off";
    if (std::isinf(s.options.attenuation_limit))
        info("vqns: direction %s, attenuation limit none, levelling %s\n", s.direction.name, levelling);
    else
        info("vqns: direction %s, attenuation limit %.1f dB, levelling %s\n", s.direction.name,
             s.options.attenuation_limit, levelling);
}

// One direction of a call; Head is aufilt_enc_st or aufilt_dec_st.
template <typename Head>
struct Filter {
    Head head;
    vqns_stream::Channels* channels;  // null: the sound passes as it is
};

template <typename Head>
void release(void* memory) {
    auto* filter = static_cast<Filter<Head>*>(memory);
    list_unlink(&filter->head.le);
    delete filter->channels;
}

// Null, and a warning, for sound that we cannot work on: an error would take the filters behind us out of the
// call.
vqns_stream::Channels* open_channels(const aufilt_prm& sound, const char* what) {
    try {
        if (sound.fmt != AUFMT_S16LE && sound.fmt != AUFMT_FLOAT) {
            warning("vqns: samples of format %s cannot be denoised: %s passes as it is\n",
                    aufmt_name(sound.fmt), what);
            return nullptr;
        }
        auto channels = std::make_unique<vqns_stream::Channels>(
            vqns_stream::open_channels(static_cast<int>(sound.srate), sound.ch, settings.options));
        const double delay = static_cast<double>(latency(*channels)) / sound.srate;
        info("vqns: denoising %s: %u Hz, %u ch, %s, delay %li ms\n", what, sound.srate,
             static_cast<unsigned>(sound.ch), aufmt_name(sound.fmt), std::lround(1000 * delay));
        return channels.release();
    } catch (const std::exception& problem) {
        warning("vqns: %s: %s passes as it is\n", problem.what(), what);
        return nullptr;
    }
}

template <typename Head>
int update(Head** head, const aufilt_prm* sound, const char* what) {
    if (head == nullptr || sound == nullptr) return EINVAL;
    if (*head != nullptr) return 0;
    auto* filter = static_cast<Filter<Head>*>(mem_zalloc(sizeof(Filter<Head>), release<Head>));
    if (filter == nullptr) return ENOMEM;
    filter->channels = open_channels(*sound, what);
    *head = &filter->head;
    return 0;
}

template <typename Head>
int denoise(Head* head, auframe* frame) {
    if (head == nullptr || frame == nullptr) return EINVAL;
    vqns_stream::Channels* channels = reinterpret_cast<Filter<Head>*>(head)->channels;
    if (channels == nullptr) return 0;
    const auto frames = static_cast<int64_t>(frame->sampc / channels->streams.size());
    if (frame->fmt == AUFMT_S16LE) process(*channels, static_cast<int16_t*>(frame->sampv), frames);
    if (frame->fmt == AUFMT_FLOAT) process(*channels, static_cast<float*>(frame->sampv), frames);
    return 0;
}

int update_sent(aufilt_enc_st** state, void**, const aufilt*, aufilt_prm* sound, const audio*) {
    return update(state, sound, "what is sent");
}

int update_received(aufilt_dec_st** state, void**, const aufilt*, aufilt_prm* sound, const audio*) {
    return update(state, sound, "what is received");
}

aufilt registered = {LE_INIT, "vqns", nullptr, nullptr, nullptr, nullptr};

int load() {
    if (!frames_are_known()) {
        warning("vqns: made for baresip 1.0, and this is another version: not loaded\n");
        return ENOTSUP;
    }
    settings = read_settings();
    report(settings);
    const Direction& direction = settings.direction;
    registered.encupdh = direction.send ? update_sent : nullptr;
    registered.ench = direction.send ? denoise<aufilt_enc_st> : nullptr;
    registered.decupdh = direction.receive ? update_received : nullptr;
    registered.dech = direction.receive ? denoise<aufilt_dec_st> : nullptr;
    aufilt_register(baresip_aufiltl(), &registered);
    return 0;
}

int unload() {
    aufilt_unregister(&registered);
    return 0;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) const struct mod_export exports;
const struct mod_export exports = {"vqns", "aufilt", load, unload};
