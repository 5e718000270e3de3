#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <stdexcept>
#include <vector>

#include "allocation_guard.h"
#include "rate_change.h"
#include "vq_ns_pipeline.h"
#include "vqns_channels.h"
#include "vqns_stream.h"

// Under these tests lie parameter tables that pass every spectrum through: what goes in comes out, delayed,
// so that delays and gains can be read off the output.

namespace {

using Pcm = std::vector<int16_t>;
using vqns_stream::Hop;
using vqns_stream::Options;

// The eight rates of the library, and others that go another way.
constexpr int kRates[] = {8000,  11025, 16000, 22050, 24000, 32000,  44100,
                          48000, 12000, 37800, 88200, 96000, 192000, 12345};

struct Stream {
    std::unique_ptr<vqns_stream::Stream, void (*)(vqns_stream::Stream*)> stream;

    explicit Stream(int rate, const Options& options = {})
        : stream(vqns_stream::open(rate, options), vqns_stream::close) {}
    int64_t latency() const {
        return vqns_stream::latency(stream.get());
    }
    // Block sizes from `sizes` in turn.
    Pcm run(const Pcm& in, const std::vector<int64_t>& sizes) {
        Pcm out(in.size(), 99);
        size_t at = 0;
        for (size_t block = 0; at < in.size(); ++block) {
            const auto n =
                std::min<int64_t>(sizes[block % sizes.size()], static_cast<int64_t>(in.size() - at));
            vqns_stream::process(stream.get(), in.data() + at, out.data() + at, n);
            at += static_cast<size_t>(n);
        }
        return out;
    }
};

Options plain() {
    Options options;
    options.level = false;
    return options;
}

Pcm noise(size_t count, int amplitude, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> sample(-amplitude, amplitude);
    Pcm pcm(count);
    for (int16_t& x : pcm) x = static_cast<int16_t>(sample(random));
    return pcm;
}

// Three tones that no filter on the way touches; known at any instant, so also between samples.
double tones(double seconds) {
    const double turn = 2 * M_PI * seconds;
    return 6000 * std::sin(310 * turn) + 4000 * std::sin(1130 * turn + 1) + 2000 * std::sin(1790 * turn + 2);
}

Pcm tone_signal(int rate, double seconds) {
    Pcm pcm(static_cast<size_t>(rate * seconds));
    for (size_t i = 0; i < pcm.size(); ++i) {
        pcm[i] = static_cast<int16_t>(std::lround(tones(static_cast<double>(i) / rate)));
    }
    return pcm;
}

// How far `pcm` from sample `first` on is from the tones starting at `start` seconds, in dB of their power.
double error_db(const int16_t* pcm, size_t count, int rate, double start) {
    double error = 0, power = 0;
    for (size_t i = 0; i < count; ++i) {
        const double want = tones(start + static_cast<double>(i) / rate);
        error += (pcm[i] - want) * (pcm[i] - want);
        power += want * want;
    }
    return 10 * std::log10(error / power);
}

TEST(Stream, LatencyIsExactAtEveryRate) {
    for (const int rate : kRates) {
        Stream stream(rate, plain());
        const auto latency = static_cast<size_t>(stream.latency());
        EXPECT_GE(stream.latency(), rate / 20 - 1) << rate;
        EXPECT_LE(stream.latency(), rate * 59 / 1000) << rate;
        const Pcm out = stream.run(tone_signal(rate, 0.3), {static_cast<int64_t>(rate / 100)});
        for (size_t i = 0; i < latency; ++i) ASSERT_EQ(out[i], 0) << rate << " sample " << i;
        // An error of a hundredth of a sample at 8 kHz is -39 dB, of half a sample at 192 kHz -32 dB.
        const size_t settled = latency + static_cast<size_t>(rate / 20);
        const double start = static_cast<double>(settled - latency) / rate;
        const double error = error_db(out.data() + settled, out.size() - settled, rate, start);
        EXPECT_LT(error, -45) << rate;
        for (const int shift : {-1, 1}) {
            EXPECT_GT(error_db(out.data() + settled, out.size() - settled, rate, start + 1.0 * shift / rate),
                      error + 10)
                << rate << " shifted by " << shift;
        }
    }
}

// The first frames overlap with silence ahead of the stream, not with nothing: no fading in.
TEST(Stream, ReturnsItsInputFromTheFirstHopOn) {
    Stream stream(16000, plain());
    const Pcm out = stream.run(tone_signal(16000, 0.5), {160});
    for (size_t i = static_cast<size_t>(stream.latency()); i + 160 <= out.size(); i += 160) {
        const double start = static_cast<double>(i - 799) / 16000;
        EXPECT_LT(error_db(out.data() + i, 160, 16000, start), -35) << i;
    }
}

TEST(Stream, BlockSizesLeaveNoTrace) {
    const std::vector<std::vector<int64_t>> sizes = {{1},   {7},     {160},
                                                     {441}, {10000}, {1, 480, 3, 997, 159, 161}};
    for (const int rate : kRates) {
        const Pcm in = noise(static_cast<size_t>(rate) / 8, 20000, 2);
        Pcm want;
        for (const auto& size : sizes) {
            Stream stream(rate);
            const Pcm out = stream.run(in, size);
            if (want.empty()) want = out;
            ASSERT_EQ(out, want) << rate << ", blocks of " << size[0];
        }
        Pcm in_place = in;
        Stream stream(rate);
        vqns_stream::process(stream.stream.get(), in_place.data(), in_place.data(),
                             static_cast<int64_t>(in_place.size()));
        EXPECT_EQ(in_place, want) << rate << ", in place";
    }
}

TEST(Stream, RateChangeKeepsItsCounts) {
    using namespace vqns_stream;
    std::mt19937 random(5);
    for (const int rate : kRates) {
        for (const RateChangeQuality quality : {RateChangeQuality::kVoice, RateChangeQuality::kMusic}) {
            for (const bool up : {false, true}) {
                RateChange change =
                    up ? open_rate_change(16000, rate, quality) : open_rate_change(rate, 16000, quality);
                Pcm out(static_cast<size_t>(change_rate_room(change)));
                const Pcm in = noise(kRateChangeBlock, 20000, 6);
                int64_t fed = 0, got = 0;
                while (fed < 5000) {
                    const int n = 1 + static_cast<int>(random() % kRateChangeBlock);
                    got += change_rate(change, in.data(), n, out.data());
                    fed += n;
                    ASSERT_EQ(got, outputs_after(change, fed)) << rate << (up ? " up" : " down");
                }
                for (int64_t m = 1; m < 700; ++m) {
                    const int64_t n = inputs_for(change, m);
                    ASSERT_TRUE(outputs_after(change, n) >= m && outputs_after(change, n - 1) < m)
                        << rate << ' ' << m;
                }
            }
        }
    }
}

// Speech-like: bursts of a harmonic tone over a little noise, quiet enough that the gain has work to do.
Pcm bursts(double seconds) {
    Pcm pcm = noise(static_cast<size_t>(16000 * seconds), 20, 3);
    for (size_t i = 0; i < pcm.size(); ++i) {
        const double t = static_cast<double>(i) / 16000;
        if (std::fmod(t, 0.8) > 0.5) continue;
        double sum = 0;
        for (int h = 1; h <= 20; ++h) sum += std::sin(2 * M_PI * 140 * h * t + h * h) / h;
        pcm[i] = static_cast<int16_t>(pcm[i] + 500 * sum * (1 + std::sin(2 * M_PI * 4 * t)));
    }
    return pcm;
}

// The engine's own entry is the model of levelling; it is fed what the adapter feeds ahead of a stream.
TEST(Stream, LevelsAsTheEngineDoes) {
    Pcm in = bursts(4);
    // Loud at the end, where the gain of the quiet part would clip.
    for (size_t i = 3 * 16000; i < in.size(); ++i)
        in[i] = static_cast<int16_t>(std::clamp(in[i] * 20, -32768, 32767));
    Pcm fed(4 * VQ_NS_HOP);
    fed.insert(fed.end(), in.begin(), in.end());
    auto engine = std::make_unique<vq_ns_data>();
    ASSERT_EQ(vq_ns_init(engine.get(), 16000, 16000), 0);
    Pcm want(fed.size());
    for (size_t i = 0; i + 160 <= fed.size(); i += 160) {
        vq_ns_process_tenms(engine.get(), fed.data() + i, want.data() + i, 160);
    }
    rk_dsp_dgc_kwenh_deinit(&engine->gain_control);

    Stream levelled(16000);
    const Pcm out = levelled.run(in, {160});
    const size_t ahead = 4 * VQ_NS_HOP + 800 - static_cast<size_t>(levelled.latency());
    double raised = 0;
    for (size_t i = 799; i + ahead < fed.size(); ++i) {
        ASSERT_EQ(out[i], want[i + ahead]) << i;
        raised = std::max(raised, std::abs(out[i]) / (std::abs(in[i - 799]) + 100.0));
    }
    EXPECT_GT(raised, 1.5) << "the gain has moved";
    EXPECT_GT(*std::max_element(out.begin(), out.end()), 31000);

    Stream plain_stream(16000, plain()), switched(16000);
    vqns_stream::set_level(switched.stream.get(), false);
    const Pcm start(in.begin(), in.begin() + 16000);
    EXPECT_EQ(switched.run(start, {160}), plain_stream.run(start, {160}));

    // In the middle it fades across one hop.
    const Pcm middle(in.begin() + 16000, in.begin() + 32000), rest(in.begin() + 32000, in.begin() + 32480);
    Stream stays(16000, plain());
    stays.run(start, {160});
    plain_stream.run(middle, {160});
    for (Stream* s : {&stays, &switched}) {
        vqns_stream::set_level(s->stream.get(), true);
        s->run(middle, {160});
    }
    vqns_stream::set_level(switched.stream.get(), false);
    const Pcm with = stays.run(rest, {160}), without = plain_stream.run(rest, {160}),
              fading = switched.run(rest, {160});
    EXPECT_GT(std::abs(with[200] - without[200]), 30) << "something to fade";
    const size_t lead = 799 - 4 * 160;  // of the hop that is due, which the last block has begun
    for (size_t i = lead; i < rest.size(); ++i) {
        const double share = i < lead + 160 ? 1 - (static_cast<double>(i - lead) + 1) / 160 : 0;
        ASSERT_NEAR(fading[i], without[i] + share * (with[i] - without[i]), 1) << i;
    }
}

struct Seen {
    int rate = 0;
    int hops = 0, speech = 0;
    double worst = -200, last_time = -1;
};

TEST(Stream, HopsTellTheirTime) {
    for (const int rate : {16000, 44100, 12000}) {
        Seen seen;
        Options options = plain();
        options.context = &seen;
        options.observer = [](void* context, const Hop& hop) {
            auto& s = *static_cast<Seen*>(context);
            if (s.hops++ > 0) {
                EXPECT_NEAR(hop.time - s.last_time, 0.01, 1e-9);
            }
            s.last_time = hop.time;
            if (hop.time < 0.02) return;
            for (const int16_t* pcm : {hop.before, hop.after}) {
                s.worst = std::max(s.worst, error_db(pcm, VQ_NS_HOP, 16000, hop.time));
            }
        };
        Stream stream(rate, options);
        stream.run(tone_signal(rate, 1), {512});
        EXPECT_NEAR(seen.hops, 100, 1) << rate;
        EXPECT_LT(seen.worst, -45) << rate;
    }
}

TEST(Stream, DetectorHearsSpeechAndPauses) {
    int decisions[2][2] = {};  // [within a burst][speech]
    Options options = plain();
    options.context = decisions;
    options.observer = [](void* context, const Hop& hop) {
        const double phase = std::fmod(hop.time, 0.8);
        if (hop.time < 0.8 || (phase > 0.45 && phase < 0.7) || phase > 0.75) return;  // onsets, hangover
        ++static_cast<int(*)[2]>(context)[phase < 0.5][hop.speech];
    };
    Stream stream(16000, options);
    stream.run(bursts(4), {160});
    EXPECT_GT(decisions[1][1], 9 * decisions[1][0]);
    EXPECT_GT(decisions[0][0], 9 * decisions[0][1]);
}

// At 48 kHz a hiss that the suppressor's band could not hold; switched on and off while a tone plays.
TEST(Stream, BypassGivesTheInputBackAndSwitchesWithoutAClick) {
    constexpr int kRate = 48000;
    Options options = plain();
    options.bypass = true;
    std::vector<float> in(kRate / 2), out(in.size());
    std::mt19937 random(8);
    for (float& x : in) x = std::uniform_real_distribution<float>(-1.5F, 1.5F)(random);
    Stream hiss(kRate, options);
    const auto latency = static_cast<size_t>(hiss.latency());
    vqns_stream::process(hiss.stream.get(), in.data(), out.data(), static_cast<int64_t>(in.size()));
    for (size_t i = 0; i < out.size(); ++i) ASSERT_EQ(out[i], i < latency ? 0 : in[i - latency]) << i;

    // A tone that the suppressor's band cannot hold is there only while bypassed: a hard switch would jump by
    // up to its amplitude, where a fade of 10 ms moves by what the tone itself does and a 480th of the
    // amplitude.
    constexpr int kAmplitude = 10000;
    Pcm tone(kRate);
    for (size_t i = 0; i < tone.size(); ++i) {
        const double turn = 2 * M_PI * 10000 * static_cast<double>(i) / kRate;
        tone[i] = static_cast<int16_t>(std::lround(kAmplitude * std::sin(turn)));
    }
    Stream stream(kRate, plain()), never(kRate, plain());
    Pcm out_of_band = stream.run(tone, {480});
    never.run(tone, {480});
    const auto set = [&](bool bypass) {
        vqns_stream::set_bypass(stream.stream.get(), bypass);
        const Pcm more = stream.run(tone, {7});
        out_of_band.insert(out_of_band.end(), more.begin(), more.end());
        return more;
    };
    const Pcm during = set(true), after = set(false);
    for (size_t i = latency; i < during.size(); ++i) ASSERT_EQ(during[i], tone[i - latency]) << i;
    never.run(tone, {480});
    const Pcm want = never.run(tone, {480});
    EXPECT_TRUE(std::equal(after.begin() + 480, after.end(), want.begin() + 480)) << "it went on listening";
    for (const size_t change : {size_t{kRate}, size_t{2 * kRate}}) {
        for (size_t i = 0; i < 480; ++i) {
            const double share = (static_cast<double>(i) + 1) / 480,
                         bypass = change == kRate ? share : 1 - share;
            ASSERT_LE(std::abs(out_of_band[change + i]), kAmplitude * bypass + 600) << change << ' ' << i;
        }
    }
}

TEST(Stream, FloatingPointIsTheSameSoundAndItsExcessesDoNoHarm) {
    const Pcm in = noise(8000, 32767, 9);
    std::vector<float> floats(in.begin(), in.end());
    for (float& x : floats) x /= 32768;
    const Pcm want = Stream(16000).run(in, {160});
    Stream stream(16000);
    vqns_stream::process(stream.stream.get(), floats.data(), floats.data(), 8000);
    for (size_t i = 0; i < want.size(); ++i) ASSERT_EQ(floats[i] * 32768, want[i]) << i;

    const float hostile[] = {NAN, INFINITY, -INFINITY, 1e30F, -7, 1e-40F};
    for (size_t i = 0; i < floats.size(); ++i) floats[i] = hostile[i * 7 % std::size(hostile)];
    vqns_stream::process(stream.stream.get(), floats.data(), floats.data(), 8000);
    for (const float x : floats) ASSERT_TRUE(x >= -1 && x <= 1);
}

TEST(Stream, ChannelsAreStreamsOfTheirOwn) {
    struct Heard {
        std::vector<int> hops = std::vector<int>(3);
    } heard;
    Options options;
    options.context = &heard;
    options.observer = [](void* context, const Hop& hop) {
        ++static_cast<Heard*>(context)->hops.at(static_cast<size_t>(hop.channel));
    };
    vqns_stream::Channels channels = vqns_stream::open_channels(44100, 3, options);
    Pcm interleaved(3 * 9000);
    std::vector<Pcm> want;
    for (size_t c = 0; c < 3; ++c) {
        const Pcm in = noise(9000, 9000, 20 + static_cast<unsigned>(c));
        for (size_t i = 0; i < in.size(); ++i) interleaved[3 * i + c] = in[i];
        want.push_back(Stream(44100).run(in, {9000}));
    }
    const long before = allocations;
    vqns_stream::process(channels, interleaved.data(), 8000);
    vqns_stream::process(channels, interleaved.data() + 3 * 8000, 1000);
    EXPECT_EQ(allocations, before);
    for (size_t i = 0; i < interleaved.size(); ++i) ASSERT_EQ(interleaved[i], want[i % 3][i / 3]) << i;
    EXPECT_EQ(vqns_stream::latency(channels), Stream(44100).latency());
    for (const int hops : heard.hops) EXPECT_EQ(hops, heard.hops[0]);
    EXPECT_GT(heard.hops[0], 15);
}

TEST(Stream, ProcessingNeverAllocates) {
    for (const int rate : kRates) {
        const Pcm in = noise(static_cast<size_t>(rate) / 20, 20000, 4);
        Pcm out(in.size());
        const long before_open = allocations;
        Stream stream(rate);
        const long before = allocations;
        EXPECT_GT(before, before_open) << "the guard sees allocations";
        for (const int64_t block : {int64_t{33}, static_cast<int64_t>(in.size()) - 33}) {
            vqns_stream::process(stream.stream.get(), in.data(), out.data(), block);
        }
        vqns_stream::set_attenuation_limit(stream.stream.get(), 12);
        vqns_stream::process(stream.stream.get(), in.data(), out.data(), static_cast<int64_t>(in.size()));
        EXPECT_EQ(allocations, before) << rate;
    }
}

TEST(Stream, RefusesWhatItCannotDo) {
    struct {
        int rate;
        double limit;
        int mode;
    } const cases[] = {{7999, 10, 2},   {192001, 10, 2}, {-1, 10, 2},    {16000, -0.1, 2},
                       {16000, NAN, 2}, {16000, 10, 4},  {16000, 10, -1}};
    for (const auto& c : cases) {
        Options options;
        options.attenuation_limit = c.limit;
        options.detector_mode = c.mode;
        EXPECT_THROW(vqns_stream::open(c.rate, options), std::runtime_error) << c.rate << ' ' << c.mode;
    }
    vqns_stream::close(nullptr);
}

}  // namespace
