#include "vqns_stream.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include "stream_timing.h"
#include "vq_ns_pipeline.h"

namespace vqns_stream {

struct Stream {
    struct Free {
        void operator()(vq_ns_data* memory) const {
            std::free(memory);
        }
    };
    Stream() = default;
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
    ~Stream() {
        rk_dsp_dgc_kwenh_deinit(&gain_control);
        TarvikGmmVad_api_deinit(&detector);
    }

    Options options;
    float dry_share = 0;        // of the input in the output, as set
    float dry_share_heard = 0;  // at the end of the last hop
    bool level_heard = false;   // in the last hop
    RateChange to_engine, from_engine;
    Timing timing = {};
    std::unique_ptr<vq_ns_data, Free> engine;
    rk_voip_dsp_dgc_kwenh_data_t gain_control = {};
    TarvikGmmVad_api_t detector = {};

    std::vector<int16_t> incoming;  // 16 kHz, short of a hop and one conversion more
    int incoming_count = 0;
    int16_t dry[kEngineHops][kHopSize] = {};  // hops inside the engine, a ring
    int64_t hops = 0;
    std::vector<int16_t> outgoing;  // at the stream's rate
    int outgoing_count = 0;
    int64_t silence_left = 0;

    std::vector<float> passing;  // the last `latency` samples of the input, a ring: what a bypass gives back
    size_t passing_at = 0;
    float bypass_share = 0, fade_step = 0;  // of the bypass in the output, and how much it moves a sample
};

namespace {

enum { kTargetLevel = 31000, kMostGain = 8, kGainDetectorMode = 2 };

vq_ns_data* new_engine() {
    enum { kAlignment = 64 };
    const size_t size = (vq_ns_data_size() + kAlignment - 1) / kAlignment * kAlignment;
    auto* engine = static_cast<vq_ns_data*>(std::aligned_alloc(kAlignment, size));
    if (engine == nullptr) throw std::bad_alloc();
    vq_ns_reset(engine, kEngineRate, kEngineRate);
    // Silence ahead of the stream fills the frame and the look-ahead, so that every hop from the first on
    // comes out whole: a frame without its predecessors would fade in.
    const int16_t silence[kHopSize] = {};
    int16_t ignored[kHopSize];
    for (int i = 0; i < kEngineHops; ++i) vq_ns_dnn_proc(engine, silence, ignored, kHopSize);
    return engine;
}

void prepare_speech_stages(Stream& s) {
    static std::mutex one_at_a_time;  // initialisation touches process-wide tables
    const std::lock_guard<std::mutex> lock(one_at_a_time);
    s.engine.reset(new_engine());
    const int32_t levelling[4] = {kGainDetectorMode, kEngineRate, 0, 0};
    if (rk_dsp_dgc_kwenh_init(&s.gain_control, kTargetLevel, kEngineRate, kMostGain, levelling) != 0) {
        throw std::bad_alloc();
    }
    const int32_t detection[4] = {s.options.detector_mode, kEngineRate, 0, 0};
    if (TarvikGmmVad_api_Init(&s.detector, detection) != 0) throw std::bad_alloc();
}

// Adds `other` to a hop, in a share that goes in a straight line from `from` to `to`.
void mix(int16_t* hop, const int16_t* other, float from, float to) {
    for (int i = 0; i < kHopSize; ++i) {
        const float share = from == to ? to : from + (to - from) * static_cast<float>(i + 1) / kHopSize;
        const auto own = static_cast<float>(hop[i]);
        hop[i] = static_cast<int16_t>(std::lrint(own + share * (static_cast<float>(other[i]) - own)));
    }
}

// Brings the hop to level, if that is asked for; by and by where that has just changed.
void level_hop(Stream& s, int16_t* hop) {
    const bool before = s.level_heard, now = s.options.level;
    s.level_heard = now;
    if (before && now) rk_dsp_dgc_kwenh_api_process(&s.gain_control, hop, kHopSize, 1);
    if (before == now) return;
    int16_t levelled[kHopSize];
    std::copy_n(hop, kHopSize, levelled);
    rk_dsp_dgc_kwenh_api_process(&s.gain_control, levelled, kHopSize, 1);
    mix(hop, levelled, before ? 1 : 0, now ? 1 : 0);
}

void process_hop(Stream& s, const int16_t* in, int16_t* out) {
    const auto slot = static_cast<size_t>(s.hops % kEngineHops);
    int16_t before[kHopSize];
    std::copy_n(s.dry[slot], kHopSize, before);
    std::copy_n(in, kHopSize, s.dry[slot]);

    vq_ns_dnn_proc(s.engine.get(), in, out, kHopSize);
    const bool speech = TarvikGmmVad_api_Process(&s.detector, out, kHopSize) == 1;
    if (s.hops == 0) {  // settings from before the first hop hold for all of it
        s.dry_share_heard = s.dry_share;
        s.level_heard = s.options.level;
    }
    // Leaves a share of the input in, so that nothing is turned down below it.
    if (s.dry_share > 0 || s.dry_share_heard > 0) mix(out, before, s.dry_share_heard, s.dry_share);
    s.dry_share_heard = s.dry_share;
    level_hop(s, out);

    if (s.options.observer != nullptr) {
        const int64_t first = (s.hops - kEngineHops) * kHopSize - s.timing.hop_offset;
        const double time = static_cast<double>(first) / kEngineRate - s.to_engine.delay / s.to_engine.from;
        s.options.observer(s.options.context, {time, s.options.channel, speech, before, out});
    }
    ++s.hops;
}

void take_block(Stream& s, const int16_t* in, int count) {
    s.incoming_count += change_rate(s.to_engine, in, count, s.incoming.data() + s.incoming_count);
    int used = 0;
    for (; s.incoming_count - used >= kHopSize; used += kHopSize) {
        int16_t hop[kHopSize];
        process_hop(s, s.incoming.data() + used, hop);
        s.outgoing_count += change_rate(s.from_engine, hop, kHopSize, s.outgoing.data() + s.outgoing_count);
    }
    s.incoming_count -= used;
    std::copy_n(s.incoming.data() + used, s.incoming_count, s.incoming.data());
}

void give_block(Stream& s, int16_t* out, int count) {
    const auto silent = static_cast<int>(std::min<int64_t>(count, s.silence_left));
    std::fill_n(out, silent, int16_t{0});
    std::copy_n(s.outgoing.data() + silent, count - silent, out + silent);
    s.silence_left -= silent;
    s.outgoing_count -= count;
    std::copy_n(s.outgoing.data() + count, s.outgoing_count, s.outgoing.data());
}

// Samples in floating point, in units of the 16-bit ones, and back.
float to_units(int16_t x) {
    return x;
}

float to_units(float x) {
    return x * 32768;
}

int16_t to_pcm(float units) {
    return static_cast<int16_t>(std::isnan(units) ? 0 : std::lrint(std::clamp(units, -32768.F, 32767.F)));
}

void from_units(float units, int16_t& x) {
    x = to_pcm(units);
}

void from_units(float units, float& x) {
    x = units / 32768;
}

// The next sample of the cross-fade between the processed sample and the one that is passed by.
float next_output(Stream& s, float processed, float passed) {
    s.bypass_share = std::clamp(s.bypass_share + (s.options.bypass ? s.fade_step : -s.fade_step), 0.F, 1.F);
    if (s.bypass_share == 0) return processed;
    if (s.bypass_share == 1) return passed;
    return processed + s.bypass_share * (passed - processed);
}

template <typename Sample>
void process_blocks(Stream& s, const Sample* in, Sample* out, int64_t count) {
    while (count > 0) {
        const auto block = static_cast<int>(std::min<int64_t>(count, kRateChangeBlock));
        int16_t pcm[kRateChangeBlock];
        float passed[kRateChangeBlock];
        for (int i = 0; i < block; ++i) {
            const float units = to_units(in[i]);
            pcm[i] = to_pcm(units);
            passed[i] = std::exchange(s.passing[s.passing_at], units);
            s.passing_at = (s.passing_at + 1) % s.passing.size();
        }
        take_block(s, pcm, block);
        give_block(s, pcm, block);
        for (int i = 0; i < block; ++i) from_units(next_output(s, pcm[i], passed[i]), out[i]);
        in += block;
        out += block;
        count -= block;
    }
}

}  // namespace

Stream* open(int rate, const Options& options) {
    if (rate < kLowestRate || rate > kHighestRate) {
        throw std::runtime_error("a rate of " + std::to_string(rate) + " Hz is outside " +
                                 std::to_string(kLowestRate) + " to " + std::to_string(kHighestRate));
    }
    if (options.detector_mode < 0 || options.detector_mode > 3) {
        throw std::runtime_error("a detector mode is 0, 1, 2 or 3");
    }
    auto s = std::make_unique<Stream>();
    s->options = options;
    set_attenuation_limit(s.get(), options.attenuation_limit);
    s->to_engine = open_rate_change(rate, kEngineRate, RateChangeQuality::kVoice);
    s->from_engine = open_rate_change(kEngineRate, rate, RateChangeQuality::kVoice);
    s->timing = stream_timing(s->to_engine, s->from_engine);
    prepare_speech_stages(*s);

    s->incoming_count = s->timing.hop_offset;
    s->incoming.assign(size_t{kHopSize} + static_cast<size_t>(change_rate_room(s->to_engine)), 0);
    s->outgoing_count = static_cast<int>(s->timing.queue_lead);
    // Beside the lead, the queue holds the hops that a block completes, one that came early, and room for
    // the converter to work in.
    const int64_t hop_at_rate = change_rate_room(s->from_engine);
    const int64_t hops_a_block = change_rate_room(s->to_engine) / kHopSize + 3;
    s->outgoing.assign(static_cast<size_t>(s->timing.queue_lead + hops_a_block * hop_at_rate), 0);
    s->silence_left = s->timing.latency;
    s->passing.assign(static_cast<size_t>(s->timing.latency), 0);
    s->fade_step = 100 / static_cast<float>(rate);
    s->bypass_share = options.bypass ? 1 : 0;
    return s.release();
}

void close(Stream* stream) {
    delete stream;
}

int64_t latency(const Stream* stream) {
    return stream->timing.latency;
}

void process(Stream* stream, const int16_t* in, int16_t* out, int64_t count) {
    process_blocks(*stream, in, out, count);
}

void process(Stream* stream, const float* in, float* out, int64_t count) {
    process_blocks(*stream, in, out, count);
}

void set_attenuation_limit(Stream* stream, double limit) {
    if (!(limit >= 0)) throw std::runtime_error("an attenuation limit is 0 dB or more");
    stream->dry_share = static_cast<float>(std::pow(10.0, -limit / 20));
}

void set_level(Stream* stream, bool level) {
    stream->options.level = level;
}

void set_bypass(Stream* stream, bool bypass) {
    stream->options.bypass = bypass;
}

}  // namespace vqns_stream
