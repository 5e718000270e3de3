// The gain control against a model in 64-bit arithmetic that cuts its frames out of the whole stream, and
// what it promises a host: any block size, no allocation while processing, harmless failures.
#include "gain_control.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "gain_apply.h"
#include "gain_estimator.h"

// The linker leads the library's allocations here.
static int allocations = 0;
static int allocation_to_fail = -1;
extern "C" {
void* __real_malloc(size_t);
void* __real_calloc(size_t, size_t);
void* __wrap_malloc(size_t size) {
    return allocations++ == allocation_to_fail ? nullptr : __real_malloc(size);
}
void* __wrap_calloc(size_t count, size_t size) {
    return allocations++ == allocation_to_fail ? nullptr : __real_calloc(count, size);
}
}

namespace {

using Wide = int64_t;
using Record = rk_voip_dsp_dgc_kwenh_data_t;
using Samples = std::vector<int16_t>;

const auto wrap = [](Wide v) { return Wide{static_cast<int32_t>(v & 0xFFFFFFFF)}; };
const auto scaled = [](Wide x, Wide gain) {
    return std::clamp(wrap(x * gain) >> 15, Wide{-32767}, Wide{32767});
};
const auto root_entry = [](int i) { return std::min(32767L, std::lround(32768 / std::sqrt(1 + i / 16.0))); };

// 1/sqrt(x) in Q30: x = mantissa 4^k with the mantissa in 1..4, its place between sixteenths to 15 bits.
Wide inv_sqrt(Wide x) {
    if (x <= 0) return 0x3FFFFFFF;
    const int k = (static_cast<int>(std::bit_width(static_cast<uint64_t>(x))) - 1) / 2;
    const double place = 16 * (std::ldexp(static_cast<double>(x), -2 * k) - 1);
    const int i = static_cast<int>(place);
    const Wide between = static_cast<Wide>((place - i) * 32768);
    return (root_entry(i) * 65536 - 2 * (root_entry(i) - root_entry(i + 1)) * between) >> (k + 1);
}

struct Model {
    Wide target;
    Wide most;
    Wide smooth = 32767, track = 32767, speech = 32767;
    Wide average = (target / 4) * (target / 4);
    std::array<Wide, 10> powers = {};
    size_t frames = 0;
    Wide peak_limit = 32000, peak = 0;
    bool limited = false;

    Wide estimate(Samples x) {
        Wide sum = 0;
        for (int16_t& v : x) {
            v = static_cast<int16_t>(scaled(v, speech));
            sum += (v >> 2) * (v >> 2);
        }
        powers[frames++ % 10] = wrap(sum) * 6560 >> 15;
        average += (powers[0] - average) >> 9;
        const Wide loudest = *std::max_element(powers.begin(), powers.end());
        const Wide distance = (inv_sqrt(loudest >> 1) * target * target >> 32) - track;
        track += distance >> (distance <= 0 ? 3 : distance <= 49999 ? 9 : 4);
        smooth += (track - smooth) >> 7;
        const auto ends = std::minmax_element(x.begin(), x.end());
        const auto gained = [&] {
            return peak =
                       std::max(std::abs(smooth * *ends.first >> 15), std::abs(smooth * *ends.second >> 15));
        };
        for (limited = false; gained() > peak_limit; limited = true) smooth = smooth * 31000 >> 15;
        smooth = smooth > most ? most : std::max(smooth, Wide{144});
        return speech = limited || std::abs(smooth - speech) >= 5000 ? smooth : speech;
    }
    bool matches(const Record& r) const {
        return r.gain_smooth == smooth && r.gain_track == track && r.gain_speech == speech &&
               r.gain_max == most && r.power_avg == average &&
               std::equal(powers.begin(), powers.end(), r.frame_power);
    }
};

// Voiced bursts: harmonics of a gliding pitch under a syllable envelope, faint noise in the pauses.
Samples babble(int rate, double seconds, double amplitude) {
    constexpr double pi = std::numbers::pi;
    std::mt19937 random(9);
    std::normal_distribution<double> noise(0, 3);
    Samples pcm;
    double phase = 0;
    for (int i = 0; i < seconds * rate; ++i) {
        const double t = static_cast<double>(i) / rate;
        phase += 2 * pi * (140 + 30 * std::sin(3 * t)) / rate;
        double voice = noise(random);
        const double syllable =
            std::fmod(t, 1.7) < 1.1 ? amplitude / 3 * std::pow(std::sin(4 * pi * t), 2) : 0;
        for (int h = 1; h <= 20; ++h) voice += syllable * std::sin(h * phase + h * h) / (1 + std::abs(h - 5));
        pcm.push_back(static_cast<int16_t>(std::clamp(voice, -32768.0, 32767.0)));
    }
    return pcm;
}

Record make(int32_t rate, int16_t target = 31000, int16_t max_gain = 8) {
    Record record;
    const int32_t config[4] = {2, rate, 0, 0};
    EXPECT_EQ(rk_dsp_dgc_kwenh_init(&record, target, rate, max_gain, config), 0);
    return record;
}

TEST(GainControl, FollowsTheModelOverAStream) {
    const struct {
        int32_t rate;
        int16_t target, max_gain;
        std::vector<double> amplitudes;  // of the stream's sections
        std::vector<int16_t> blocks;     // sizes, in turn
    } cases[] = {
        {16000, 31000, 8, {400, 9000, 60000, 300}, {160}},
        {16000, 31000, 8, {400000, 150, 32000}, {1, 159, 160, 161, 0, -5, 7, 4097, 900, 319}},
        {16000, 6000, 2, {1000, 20000}, {32767, 160, 160, 150, 170, 160, 160, 160}},
        {8000, 31000, 8, {500, 300000, 500}, {80}},
        {8000, 31000, 30, {100, 3000}, {32767, 4097, 33, 4096}},
    };
    int raised = 0, lowered = 0, idle = 0, without_frame = 0, limited = 0, wrapped = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << c.rate << " Hz, target " << c.target << ", blocks of " << c.blocks[0]);
        Samples stream;
        for (const double a : c.amplitudes) {
            const Samples section = babble(c.rate, 14, a);
            stream.insert(stream.end(), section.begin(), section.end());
        }
        Samples wide = stream;
        if (c.rate == 8000) {
            RK_VOIP_DSP_SRC_RECORD(1) memory;
            rk_voip_dsp_src_inst_t* converter = &memory.instance;
            ASSERT_EQ(rk_voip_dsp_src_init(&converter, 8000, 16000, RK_SRC_MONO_TO_MONO, 1), 0);
            wide.resize(2 * stream.size());
            rk_voip_dsp_src_proc(&converter, stream.data(), wide.data(), static_cast<int32_t>(stream.size()));
        }
        TarvikGmmVad_api_t vad = {};
        const int32_t config[4] = {2, c.rate, 0, 0};
        ASSERT_EQ(TarvikGmmVad_api_Init(&vad, config), 0);
        Model model{c.target, c.max_gain * 32767};
        Record record = make(c.rate, c.target, c.max_gain);

        auto cut = wide.begin();
        size_t fed = 0;
        for (size_t turn = 0; fed < stream.size(); ++turn) {
            const auto left = static_cast<Wide>(stream.size() - fed);
            const auto count = static_cast<int16_t>(std::min(left, Wide{c.blocks[turn % c.blocks.size()]}));
            const int32_t gain = rk_dsp_dgc_kwenh_process(&record, stream.data() + fed, count);
            fed += static_cast<size_t>(std::max(count, int16_t{0}));
            const auto end = wide.begin() + static_cast<Wide>(fed * wide.size() / stream.size());
            int32_t verdict = 0;
            without_frame += end - cut < 160 && model.speech != 32767;
            for (; end - cut >= 160; cut += 160) {
                verdict = TarvikGmmVad_api_Process(&vad, &*cut, 160);
                idle += verdict == 0;
                if (verdict != 1) continue;
                model.estimate({cut, cut + 160});
                limited += model.limited;
                wrapped += model.powers[(model.frames - 1) % 10] < 0;
            }
            ASSERT_EQ(gain, verdict == 1 ? model.speech : 32767) << "after " << fed;
            ASSERT_EQ(record.gain_applied, gain);
            ASSERT_EQ(record.pending_count, end - cut);
            ASSERT_TRUE(model.matches(record)) << "after " << fed;
            raised += gain > 40000;
            lowered += gain < 25000;
        }
        EXPECT_GT(model.frames, wide.size() / 160 / 4) << "hardly any speech";
        TarvikGmmVad_api_deinit(&vad);
        rk_dsp_dgc_kwenh_deinit(&record);
    }
    for (const int seen : {raised, lowered, idle, without_frame, limited, wrapped}) EXPECT_GT(seen, 10);
}

// Straight into the estimator: frames of every loudness, limits that make no sense, and states that put a
// comparison on its very edge.
TEST(GainControl, EstimatorFollowsTheModel) {
    std::mt19937 random(5);
    const int16_t settings[][2] = {{31000, 8}, {31000, 1}, {31000, 0}, {31000, -3}, {31000, 32767}, {100, 8}};
    for (const auto& [target, max_gain] : settings) {
        Record record = make(16000, target, max_gain);
        Model model{target, max_gain * 32767};
        for (int i = 0; i < 3000; ++i) {
            const int top = 1 << (random() % 13 == 0 ? 15 : i / 200);
            std::uniform_int_distribution<int> voice(-top, top - 1);
            Samples frame(160);
            for (int16_t& v : frame) v = static_cast<int16_t>(voice(random));
            if (random() % 50 == 0) frame.assign(160, random() % 2 ? INT16_MIN : INT16_MAX);
            Model ahead = model;
            if (random() % 8 == 0) {
                frame.assign(160, 0);
                ahead.estimate(frame);
                const int changes[] = {-5001, -5000, -4999, 4999, 5000, 5001};
                model.speech = ahead.smooth - changes[random() % 6];
                record.gain_speech = static_cast<int32_t>(model.speech);
            } else if (random() % 8 == 0) {
                ahead.peak_limit = INT32_MAX;
                ahead.estimate(frame);
                model.peak_limit = std::clamp(ahead.peak - Wide{i % 2}, Wide{1}, Wide{32767});
            }
            record.peak_limit = static_cast<int16_t>(model.peak_limit);
            const Wide expected = model.estimate(frame);
            ASSERT_EQ(rk_dsp_dgc_kwenh_gain_est(&record, frame.data()), expected)
                << max_gain << ", frame " << i;
            ASSERT_TRUE(model.matches(record)) << max_gain << ", frame " << i;
            model.peak_limit = 32000;
        }
        rk_dsp_dgc_kwenh_deinit(&record);
    }
}

TEST(GainControl, RootsAndScaling) {
    std::mt19937 random(2);
    for (int i = 0; i < 200000; ++i) {
        const auto bits =
            i < 2000 ? static_cast<uint32_t>(i - 1000) : static_cast<uint32_t>(random() >> (i % 32));
        const auto x = static_cast<int32_t>(bits);
        ASSERT_EQ(rk_dgc_kwenh_inv_sqrt(x), inv_sqrt(x)) << x;
        if (x > 0) {
            ASSERT_NEAR(rk_dgc_kwenh_inv_sqrt(x) / 0x1p30 * std::sqrt(x), 1, 4e-4) << x;
        }
        ASSERT_EQ(rk_dsp_dgc_kwenh_sqrt(x), static_cast<int>(std::sqrt(bits))) << bits;
    }
    Samples all(65536 + 1);
    for (size_t i = 0; i < all.size(); ++i) all[i] = static_cast<int16_t>(i);
    for (const int32_t gain : {32767, 0, 144, 32768, 65537, 262136, -40000, INT32_MAX, INT32_MIN}) {
        Samples gained = all;
        rk_dsp_dgc_kwenh_apply(gained.data(), 65536, gain);
        EXPECT_EQ(gained.back(), all.back()) << "beyond the count";
        for (size_t i = 0; i < 65536; ++i)
            ASSERT_EQ(gained[i], scaled(all[i], gain)) << all[i] << " x " << gain;
    }
}

TEST(GainControl, InterleavedChannelsShareTheGainOfTheFirst) {
    const Samples speech = babble(16000, 8, 600);
    for (const size_t channels : {1U, 2U, 3U}) {
        Record by_hand = make(16000);
        Record record = make(16000);
        int raised = 0;
        for (size_t at = 0; at + 9600 < speech.size(); at += 485) {
            const size_t frames = at == 4850 ? 9600 : 480;
            Samples buffer(frames * channels + 1, 30000);
            for (size_t i = 0; i < frames; ++i) buffer[i * channels] = speech[at + i];
            Samples expected = buffer;
            const auto count = static_cast<int16_t>(frames);
            const int32_t gain = rk_dsp_dgc_kwenh_process(&by_hand, speech.data() + at, count);
            rk_dsp_dgc_kwenh_apply(expected.data(), static_cast<int32_t>(frames * channels), gain);
            EXPECT_EQ(
                rk_dsp_dgc_kwenh_api_process(&record, buffer.data(), count, static_cast<int16_t>(channels)),
                0);
            ASSERT_EQ(buffer, expected) << channels << " at " << at;
            raised += gain > 32767;
        }
        EXPECT_GT(raised, 10);
        // Nothing to scale: the buffer stays, and positive counts pass as silence.
        const int held = record.pending_count;
        Samples untouched(4, 1000);
        const int16_t shapes[][2] = {{0, 2}, {-2, 2}, {-2, -2}, {3, 0}, {161, -1}};
        for (const auto& s : shapes)
            EXPECT_EQ(rk_dsp_dgc_kwenh_api_process(&record, untouched.data(), s[0], s[1]), 0);
        EXPECT_EQ(untouched, Samples(4, 1000));
        EXPECT_EQ(record.pending_count, (held + 164) % 160);
        rk_dsp_dgc_kwenh_deinit(&by_hand);
        rk_dsp_dgc_kwenh_deinit(&record);
    }
}

int lines(const std::string& text, const std::string& line) {
    int found = 0;
    for (size_t at = 0; (at = text.find(line + '\n', at)) != std::string::npos; ++at) ++found;
    return found;
}

// Where the detector refuses 10 ms of 16 kHz, or the converter the rate, the gain is unity.
TEST(GainControl, OtherRatesStayAtUnity) {
    const Samples speech = babble(48000, 0.6, 5000);
    for (const int32_t rate : {48000, 44100, 32000, 24000, 22050, 11025, 12345, 96000, 1, 0, -8000}) {
        testing::internal::CaptureStdout();
        Record record = make(rate);
        for (const int16_t count : std::initializer_list<int16_t>{480, 1, 20000, 8000}) {
            EXPECT_EQ(rk_dsp_dgc_kwenh_process(&record, speech.data(), count), 32767) << rate;
        }
        const bool known = rate > 10000 && rate < 50000 && rate != 12345;
        const int frames = known ? static_cast<int>(std::ceil(28481.0 * 16000 / rate)) / 160 : 0;
        EXPECT_EQ(lines(testing::internal::GetCapturedStdout(), "failed in TarvikGmmVad_Process"), frames)
            << rate;
        rk_dsp_dgc_kwenh_deinit(&record);
    }
}

TEST(GainControl, PauseAndResumeOnlyTell) {
    Record record = make(16000);
    EXPECT_EQ(get_op1, 1);
    EXPECT_EQ(record.target_power, 1922000000);
    const struct {
        int32_t command, paused;
        const char* printed;
    } steps[] = {{8004, 1, "DGC1 PAUSE \n"},
                 {8003, 1, ""},
                 {9999, 1, ""},
                 {8005, 0, "DGC1 RESUME \n"},
                 {-8004, 0, ""}};
    for (const auto& step : steps) {
        testing::internal::CaptureStdout();
        rk_dsp_dgc_kwenh_control(&record, step.command);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), step.printed) << step.command;
        EXPECT_EQ(record.paused, step.paused);
        EXPECT_EQ(get_op1, 1 - step.paused);
    }
    rk_dsp_dgc_kwenh_deinit(&record);
}

// A refused mode, and every allocation failing in turn: -1, unity, nothing released twice.
TEST(GainControl, FailuresAreHarmless) {
    Samples speech = babble(8000, 0.5, 8000);
    const auto attempt = [&](int32_t rate, int32_t mode, int failing) {
        Record record;
        const int32_t config[4] = {mode, rate, 0, 0};
        get_op1 = 0;
        testing::internal::CaptureStdout();
        allocations = 0;
        allocation_to_fail = failing;
        const int32_t result = rk_dsp_dgc_kwenh_init(&record, 31000, rate, 8, config);
        allocation_to_fail = -1;
        const int made = std::exchange(allocations, 0);
        const auto count = static_cast<int16_t>(speech.size());
        const int32_t gain = rk_dsp_dgc_kwenh_process(&record, speech.data(), count);
        EXPECT_TRUE(result == 0 || gain == 32767);
        EXPECT_EQ(allocations, 0) << "processing allocated";
        EXPECT_EQ(get_op1, result == 0);
        for (int i = 0; i < 2; ++i) EXPECT_EQ(rk_dsp_dgc_kwenh_deinit(&record), 0);
        EXPECT_EQ(rk_dsp_dgc_kwenh_api_process(&record, speech.data(), count, 1), 0);
        EXPECT_EQ(record.gain_applied, 32767) << "without its detector";
        const int printed = lines(testing::internal::GetCapturedStdout(), "TarvikGmmVad_api_Init fail");
        return std::array{result, made, printed};
    };
    for (const int32_t rate : {16000, 8000}) {
        const int needed = rate == 16000 ? 2 : 3;  // converter, wrapper, detector
        EXPECT_EQ(attempt(rate, 2, -1), (std::array{0, needed, 0}));
        EXPECT_EQ(attempt(rate, 7, -1), (std::array{-1, needed, 1}));
        for (int failing = 0; failing < needed; ++failing) {
            EXPECT_EQ(attempt(rate, 2, failing), (std::array{-1, failing + 1, failing < needed - 2 ? 0 : 1}));
        }
    }
}

}  // namespace
