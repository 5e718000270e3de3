#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <random>
#include <span>

#include "gmm_vad.h"
#include "signal_processing_library.h"
#include "vad_core.h"
#include "vad_core_tables.h"
#include "vad_filterbank.h"
#include "vad_sp.h"

namespace {

using i64 = int64_t;
using list = std::vector<i64>;
using samples = std::vector<int16_t>;

constexpr int rates[] = {8000, 16000, 32000, 48000};
constexpr int16_t (VadInstT::*models[])[12] = {&VadInstT::noise_mean, &VadInstT::speech_mean,
                                               &VadInstT::noise_std, &VadInstT::speech_std};
std::mt19937 rng(7);

constexpr auto w16 = [](i64 x) { return static_cast<int16_t>(x); };
constexpr auto w32 = [](i64 x) { return i64{static_cast<int32_t>(x)}; };
constexpr auto divide = [](i64 n, i64 d) { return d == 0 ? INT32_MAX : w32(n / d); };

int bit_length(i64 x) {
    return x == 0 ? 0 : 1 + bit_length(x >> 1);
}

// The detector once more, in 64 bits with every wrap written out. It shares with the library the record, the
// constants and the 48 kHz converter, which has tests of its own.
struct Model {
    VadInstT s;

    std::map<std::string, int> seen;  // how often the rarer ways were taken

    // To high, low.
    std::pair<list, list> split(const list& x, size_t n) {
        list y[2];
        for (size_t phase : {0u, 1u}) {
            const i64 c = phase == 0 ? 20972 : 5571;
            i64 carry = i64{s.filter_state[5 * phase + n]} * 65536;
            for (size_t i = phase; i < x.size(); i += 2) {
                y[phase].push_back(w16(w32(x[i] * c + carry) >> 16));
                carry = w32(2 * (x[i] * 16384 - y[phase].back() * c));
            }
            s.filter_state[5 * phase + n] = w16(carry >> 16);
        }
        list high, low;
        for (size_t i = 0; i < y[0].size(); i++) high.push_back(w16(y[0][i] - y[1][i]));
        for (size_t i = 0; i < y[0].size(); i++) low.push_back(w16(y[0][i] + y[1][i]));
        return {high, low};
    }

    static int16_t log_energy(const list& x, int offset, i64& total) {
        i64 peak = -1, energy = 0;
        for (i64 v : x) peak = std::max(peak, v == -32768 ? -1 : std::abs(v));
        const int needed = bit_length(static_cast<i64>(x.size())) - 31 + bit_length(peak * peak);
        const int scale = peak == 0 ? 0 : std::max(0, needed);
        for (i64 v : x) energy += (v * v) >> scale;
        energy &= 0xFFFFFFFF;
        if (energy == 0) return w16(offset);
        const int n = bit_length(energy) - 15;
        const i64 m = n >= 0 ? energy >> n : energy << -n, r = scale + n;
        if (total <= 10) total += r >= 0 ? 11 : m >> -r;
        const i64 v = w16(((14336 + m / 16 % 1024) * 24660 >> 19) + (r * 24660 >> 9));
        return w16(std::max<i64>(v, 0) + offset);
    }

    i64 features(const list& frame, int16_t* f) {
        const int offset[] = {368, 368, 272, 176};
        i64 total = 0;
        auto [high, low] = split(frame, 0);
        const auto upper = split(high, 1);
        f[5] = log_energy(upper.first, 176, total);
        f[4] = log_energy(upper.second, 176, total);
        for (size_t ch : {3u, 2u, 1u}) {
            std::tie(high, low) = split(low, 5 - ch);
            f[ch] = log_energy(high, offset[ch], total);
        }
        int16_t* const h = s.filter_state + 10;
        for (i64& x : low) {
            const i64 y = (6631 * x - 13262 * h[0] + 6631 * h[1] + 7756 * h[2] - 5620 * h[3]) >> 14;
            std::tie(h[1], h[0], h[3], h[2]) = std::tuple(h[0], w16(x), h[2], w16(y));
            x = w16(y);
        }
        f[0] = log_energy(low, offset[0], total);
        return total;
    }

    i64 minimum(i64 x, int ch) {
        std::vector<std::pair<i64, i64>> v;  // value, age
        for (int i = 16 * ch; i < 16 * ch + 16; i++) v.emplace_back(s.min_values[i], s.min_age[i]);
        for (auto e = v.begin(); e != v.end(); e++) {
            if (e->second != 100) {
                e->second = std::min<i64>(e->second + 1, 32767);
            } else {
                std::rotate(e, e + 1, v.end());
                v.back() = {10000, 101};
                seen["expired"]++;
            }
        }
        const auto larger = std::find_if(v.begin(), v.end(), [x](const auto& e) { return e.first > x; });
        if (x < v[15].first) v.insert(larger, {x, 1});
        for (size_t i = 0; i < 16; i++) {
            s.min_values[16 * static_cast<size_t>(ch) + i] = w16(v[i].first);
            s.min_age[16 * static_cast<size_t>(ch) + i] = w16(v[i].second);
        }
        const i64 c = s.frame_count == 0 ? 1600 : v[s.frame_count > 2 ? 2 : 0].first;
        const i64 kept = s.frame_count == 0 ? 1 : c < s.min_mean[ch] ? 6554 : 32440;
        return s.min_mean[ch] = w16((s.min_mean[ch] * kept + c * (32768 - kept) + 16384) >> 15);
    }

    static i64 gaussian(i64 x, i64 m, i64 deviation, int16_t& delta) {
        const i64 inverse = w16(divide((deviation >> 1) + 131072, deviation)), d = w16(8 * x - m);
        delta = w16(w16((inverse >> 2) * (inverse >> 2) >> 2) * d >> 10);
        if (delta * d > 11266559) return 0;
        const i64 y = w32(((delta * d) >> 9) * 5909) >> 12, shift = (w16(y - 1) >> 10) + 1;
        return shift < 0 || shift > 31 ? 0 : (((-y & 1023) | 1024) >> shift) * inverse;
    }

    // log2 of the likelihood of f in channel c; shares r and deltas d of the two Gaussians.
    static int likelihood(int f, int c, const int16_t* weight, const int16_t* mean, const int16_t* deviation,
                          int16_t* r, int16_t* d) {
        i64 p[2];
        for (int g : {0, 1}) {
            const int k = 6 * g + c;
            p[g] = w32(weight[k] * gaussian(f, mean[k], deviation[k], d[k]));
        }
        const i64 h = w32(p[0] + p[1]);
        if (h >= 4096) r[c] = w16(divide(w32(p[0] * 4) >> 14 << 14, w16(h >> 12)));
        if (h >= 4096) r[c + 6] = w16(16384 - r[c]);
        return h == 0 ? 0 : bit_length(h < 0 ? ~h : h);
    }

    // Growth of a deviation before rounding.
    i64 growth(i64 delta, i64 t, i64 share, int shift, i64 divisor) {
        const i64 product = share * ((delta * t >> 3) - 4096), v = w32(product) >> shift;
        seen["wrapped"] += product != w32(product);
        seen[v > 0 ? "wider" : "narrower"]++;
        return v > 0 ? divide(v, divisor) : w32(-divide(-v, divisor));
    }

    // Of the two Gaussians of one channel.
    static int mean(const int16_t* m, const int16_t* weight) {
        return m[0] * weight[0] + m[6] * weight[6];
    }

    static void move(int16_t* m, i64 by) {
        for (int k : {0, 6}) m[k] = w16(m[k] + by);
    }

    bool judge(const int16_t* f, int len) {
        int16_t dn[12], ds[12], rn[12] = {}, rs[12] = {};
        bool speech = false;
        i64 sum = 0, bound = 12800;
        for (int c = 0; c < 6; c++) {
            const int h0 = likelihood(f[c], c, kNoiseDataWeights, s.noise_mean, s.noise_std, rn, dn);
            const int h1 = likelihood(f[c], c, kSpeechDataWeights, s.speech_mean, s.speech_std, rs, ds);
            if (rn[c] == 0 && rn[c + 6] == 0) rn[c] = 16384, seen["unlike_noise"]++;
            seen["unlike_speech"] += rs[c] == 0 && rs[c + 6] == 0;
            // No likelihood counts as one below the smallest.
            const int ratio = (h0 == 0 ? 31 : 31 - h0) - (h1 == 0 ? 31 : 31 - h1);
            sum += ratio * kSpectrumWeight[c];
            speech |= 4 * ratio > s.local_threshold[len];
        }
        speech |= sum >= s.global_threshold[len];

        for (int c = 0; c < 6; c++) {
            int16_t *const nm = s.noise_mean + c, *const sm = s.speech_mean + c;
            const auto noise = [&] { return mean(nm, kNoiseDataWeights + c); };
            const auto voice = [&] { return mean(sm, kSpeechDataWeights + c); };
            const i64 lowest = minimum(f[c], c);
            const i64 back = w16(lowest * 16 - (noise() >> 6)) * 154 >> 9;
            for (int k : {c, c + 6}) {
                const int g = k / 6;
                i64 step = back;
                if (speech) {
                    const i64 t = w16(f[c] - ((s.speech_mean[k] + 4) >> 3));
                    const i64 rise = ((w16(rs[k] * ds[k] >> 11) * 6554 >> 21) + 1) >> 1;
                    const i64 floored = std::max<i64>(g == 0 ? 640 : 768, s.speech_mean[k] + rise);
                    s.speech_mean[k] = w16(std::min(bound + 640, floored));
                    const i64 q = growth(ds[k], t, rs[k] >> 2, 4, w16(s.speech_std[k] * 10));
                    s.speech_std[k] = w16(std::max(384, s.speech_std[k] + (w16(q + 128) >> 8)));
                } else {
                    const i64 t = w16(f[c] - (s.noise_mean[k] >> 3));
                    step += w16(rn[k] * dn[k] >> 11) * 655 >> 22;
                    const i64 q = growth(dn[k], t, (rn[k] + 2) >> 2, 14, s.noise_std[k]);
                    s.noise_std[k] = w16(std::max(384, s.noise_std[k] + (w16(q + 32) >> 6)));
                }
                const int raised = std::max<int>(128 * (5 + g), w16(s.noise_mean[k] + step));
                s.noise_mean[k] = w16(std::min(128 * (72 + g - c), raised));
            }
            if (w16((voice() >> 9) - (noise() >> 9)) < kMinimumDifference[c]) {
                const i64 m = w16(kMinimumDifference[c] + (noise() >> 9) - (voice() >> 9));
                move(sm, m * 13 >> 2), move(nm, -(m * 3 >> 2)), seen["separated"]++;
            }
            bound = kMaximumSpeech[c];
            const i64 over[2] = {(voice() >> 7) - bound, (noise() >> 7) - kMaximumNoise[c]};
            if (over[0] > 0) move(sm, -over[0]), seen["loud_speech"]++;
            if (over[1] > 0) move(nm, -over[1]), seen["loud_noise"]++;
        }
        s.frame_count += s.frame_count < INT32_MAX;
        return speech;
    }

    static list halve(const list& x, int32_t* state) {
        list y;
        for (size_t i = 0; i < x.size(); i += 2) {
            const i64 t1 = (x[i] * 5243 >> 14) + (state[0] >> 1);
            const i64 t2 = (x[i + 1] * 1392 >> 14) + (state[1] >> 1);
            state[0] = static_cast<int32_t>(x[i] - (w16(t1) * 5243 >> 12));
            state[1] = static_cast<int32_t>(x[i + 1] - (w16(t2) * 1392 >> 12));
            y.push_back(w16(t1 + t2));
        }
        return y;
    }

    int decide(const samples& frame, int rate) {
        list x(frame.begin(), frame.end());
        const int len = static_cast<int>(x.size()) * 100 / rate - 1;
        if (rate == 32000) x = halve(x, s.down_state + 2);
        if (rate == 32000 || rate == 16000) x = halve(x, s.down_state);
        if (rate == 48000) x.clear();
        for (int i = 0; i <= len && rate == 48000; i++) {  // the first 10 ms, again and again
            int32_t scratch[496];
            int16_t out[80];
            TarvikSpl_Resample48khzTo8khz(frame.data(), out, s.resample_state, scratch);
            x.insert(x.end(), out, out + 80);
        }
        int16_t f[6];
        const bool speech = features(x, f) > 10 && judge(f, len);
        s.decision = speech ? 1 : s.hangover > 0 ? 2 + s.hangover : 0;
        const int run = speech ? std::min(s.speech_run + 1, 7) : 0;
        const int renewed = (run < 7 ? s.hang_short : s.hang_long)[len];
        s.hangover = w16(speech ? renewed : s.hangover - (s.hangover > 0));
        s.speech_run = w16(std::min(run, 6));
        return s.decision;
    }
};

// Pulses at 130 Hz through resonances at 600 and 1700 Hz, in syllables of 300 ms and as long apart, in noise.
samples speech_like(int rate, double seconds, double level, double noise_level) {
    samples x(static_cast<size_t>(rate * seconds));
    std::normal_distribution<double> noise(0, noise_level);
    double y[2][2] = {}, phase = 0;
    for (size_t i = 0; i < x.size(); i++) {
        phase += 130.0 / rate;
        double out = phase >= 1 && i * 10 / static_cast<size_t>(rate) % 6 < 3 ? level : 0;
        phase -= std::floor(phase);
        for (int k : {0, 1}) {
            const double r = std::exp(-M_PI * 90 / rate), angle = 2 * M_PI * (600 + k * 1100) / rate;
            const double v = out + 2 * r * std::cos(angle) * y[k][0] - r * r * y[k][1];
            std::tie(y[k][1], y[k][0], out) = std::tuple(y[k][0], v, out + v);
        }
        x[i] = w16(std::lrint(std::clamp(out / 2 + noise(rng), -32768.0, 32767.0)));
    }
    return x;
}

// Half seconds of noise, extremes, faint noise, rising noise, slow extremes, the lowest sample, clicks, sine.
samples hostile(int rate) {
    samples x;
    for (int i = 0; i < 4 * rate; i++) {
        const int r = w16(static_cast<i64>(rng())), kind = 2 * i / rate;
        const int square = i / (1 + kind * 8) % 2 == 0 ? 32767 : -32768, click = r % 200 == 0 ? r : 0;
        const int tone = static_cast<int>(30000 * std::sin(i * 0.2)), rising = r >> (15 - i * 32 / rate % 16);
        const int kinds[] = {r, square, r % 3, rising, square, -32768, click, tone};
        x.push_back(w16(kinds[kind]));
    }
    return x;
}

VadInstT detector(int mode) {
    VadInstT vad;
    EXPECT_EQ(TarvikGmmVad_Init(&vad), 0);
    EXPECT_EQ(TarvikGmmVad_set_mode(&vad, mode), 0);
    return vad;
}

bool same(const VadInstT& a, const VadInstT& b) {
    static_assert(std::has_unique_object_representations_v<VadInstT>);
    return memcmp(&a, &b, sizeof a) == 0;
}

}  // namespace

TEST(VadCore, AgreesWithModelAtEveryRateLengthAndMode) {
    Model model;
    int decided[3] = {};
    for (int i = 0; i < 48; i++) {
        const int rate = rates[i % 4], mode = i / 4 % 4;
        const size_t length = static_cast<size_t>(rate / 100 * (1 + i / 16));
        samples x = speech_like(rate, 3, 24000, 40);
        const samples extremes = hostile(rate), loud = speech_like(rate, 2, 60000, 3000);
        x.insert(x.end(), extremes.begin(), extremes.end());
        x.insert(x.end(), loud.begin(), loud.end());
        VadInstT vad = detector(mode);
        model.s = vad;
        for (size_t at = 0; at + length <= x.size(); at += length) {
            const int expected = model.decide(samples(&x[at], &x[at] + length), rate);
            ASSERT_EQ(TarvikGmmVad_Process(&vad, rate, &x[at], length), expected > 0);
            ASSERT_TRUE(same(vad, model.s)) << rate << " Hz, mode " << mode << ", sample " << at;
            decided[std::min(expected, 2)]++;
        }
    }
    for (int n : decided) EXPECT_GT(n, 1000);
    for (const auto& [way, n] : model.seen) EXPECT_TRUE(n > 20 || way == "wrapped") << way;
    EXPECT_EQ(model.seen.size(), 9u);
}

TEST(VadCore, AgreesWithModelFromAnyState) {
    Model model;
    for (int i = 0; i < 6000; i++) {
        VadInstT wild;
        auto* const bytes = reinterpret_cast<uint8_t*>(&wild);
        std::generate(bytes, bytes + sizeof wild, [] { return static_cast<uint8_t>(rng()); });
        VadInstT vad = i % 2 == 0 ? wild : detector(0);  // odd: with wild models of believable deviations
        for (auto array : models) memcpy(vad.*array, wild.*array, sizeof wild.noise_mean);
        for (int k = 0; k < 12 && i % 2 == 1; k++) vad.noise_std[k] &= 0xFFF, vad.speech_std[k] &= 0xFFF;
        if (i % 3 == 0) vad.frame_count = i % 4;
        vad.init_flag = 42;
        model.s = vad;
        const int rate = rates[i / 2 % 4];
        samples x(static_cast<size_t>(rate / 100 * (1 + i % 3)));
        for (int16_t& sample : x) sample = w16(static_cast<int16_t>(rng()) >> (i % 16));
        ASSERT_EQ(TarvikGmmVad_Process(&vad, rate, x.data(), x.size()), std::min(1, model.decide(x, rate)));
        ASSERT_TRUE(same(vad, model.s)) << i;
    }
    EXPECT_GT(model.seen["wrapped"], 100);
}

TEST(VadCore, HangoverFollowsTheRunOfSpeechByModeAndLength) {
    const int expected[2][4][3] = {{{8, 4, 3}, {8, 4, 3}, {6, 3, 2}, {6, 3, 2}},
                                   {{14, 7, 5}, {14, 7, 5}, {9, 5, 3}, {9, 5, 3}}};
    for (int i = 0; i < 24; i++) {
        const int mode = i % 4, len = i / 4 % 3, run = 6 + i / 12;
        VadInstT vad = detector(mode);
        std::fill_n(vad.local_threshold, 3, int16_t{-32768});  // any sound is speech
        const samples noise = speech_like(8000, 0.01 * (len + 1), 0, 3000), silence(noise.size());
        for (int k = 0; k < run; k++) TarvikGmmVad_CalcVad8khz(&vad, noise.data(), noise.size());
        EXPECT_EQ(vad.decision, 1);
        const VadInstT before = vad;
        for (int left = expected[run > 6][mode][len]; left >= 0; left--) {
            std::fill_n(vad.filter_state, 14, int16_t{0});  // no echo of the noise
            TarvikGmmVad_CalcVad8khz(&vad, silence.data(), silence.size());
            EXPECT_EQ(vad.decision, left > 0 ? left + 2 : 0);
        }
        // Silence teaches the models nothing.
        for (auto array : models) EXPECT_TRUE(std::equal(before.*array, before.*array + 12, vad.*array));
        EXPECT_EQ(vad.frame_count, before.frame_count);
    }
}

TEST(VadCore, FindsSyllablesInNoise) {
    for (int rate : rates) {
        VadInstT vad = detector(2);
        const samples x = speech_like(rate, 12, 24000, 60);
        const size_t length = static_cast<size_t>(rate / 100);
        int found = 0, spurious = 0;
        for (size_t i = 0; i < 1200; i++) {  // syllables take 30 frames of 60, and 9 more of hangover
            const int speech = TarvikGmmVad_Process(&vad, rate, &x[i * length], length);
            if (i > 200) (i % 60 < 30 ? found : spurious) += speech && (i % 60 < 30 || i % 60 > 42);
        }
        EXPECT_GT(found, 470) << rate;   // of 499
        EXPECT_LT(spurious, 5) << rate;  // of 283
    }
}

TEST(VadFeatures, TonesShowInTheirBandsAndSilenceInNone) {
    const int tones[6] = {170, 380, 700, 1500, 3600, 2400};
    int16_t f[6];
    for (int band = 0; band < 6; band++) {
        VadInstT vad = detector(0);
        samples x(240);
        for (double phase = 0; int16_t & v : x)
            v = w16(std::lrint(8000 * std::sin(phase += tones[band] * M_PI / 4000)));
        const int total = TarvikGmmVad_CalculateFeatures(&vad, x.data(), 240, f);
        EXPECT_TRUE(band == 5 ? total == 11 : total > 10);  // 11 as soon as the first band is loud
        EXPECT_EQ(std::max_element(f, f + 6) - f, band);
    }
    VadInstT vad = detector(0);
    EXPECT_EQ(TarvikGmmVad_CalculateFeatures(&vad, samples(80).data(), 80, f), 0);
    EXPECT_EQ(list(f, f + 6), (list{368, 368, 272, 176, 176, 176}));
}

TEST(VadTables, HoldTheirValues) {
    uint32_t hash = 0;
    const auto add = [&](const auto&... tables) {
        for (auto table : {std::span<const int16_t>(tables)...}) {
            for (int16_t v : table) hash = hash * 31 + static_cast<uint32_t>(v);
        }
    };
    add(kNoiseDataMeans, kNoiseDataStds, kNoiseDataWeights, kSpeechDataMeans, kSpeechDataStds,
        kSpeechDataWeights, kMaximumNoise, kMaximumSpeech, kMinimumDifference, kMinimumMean, kSpectrumWeight,
        kOverHangMax1Q, kOverHangMax2Q, kLocalThresholdQ, kGlobalThresholdQ, kOverHangMax1LBR,
        kOverHangMax2LBR, kLocalThresholdLBR, kGlobalThresholdLBR, kOverHangMax1AGG, kOverHangMax2AGG,
        kLocalThresholdAGG, kGlobalThresholdAGG, kOverHangMax1VAG, kOverHangMax2VAG, kLocalThresholdVAG,
        kGlobalThresholdVAG);
    EXPECT_EQ(hash, 4074212750u);
}

TEST(VadDeathTest, BrokenPreconditionsStopTheProgram) {
    VadInstT vad = detector(0);
    const samples x(241);
    int16_t f[6];
    EXPECT_DEATH(
        TarvikGmmVad_CalculateFeatures(&vad, x.data(), 241, f),
        "\\.\\./\\.\\./gmm_vad/source/csrc/vad_filterbank:[0-9]+: int16_t TarvikGmmVad_CalculateFeatures"
        "\\(VadInstT\\*, const int16_t\\*, size_t, int16_t\\*\\): Assertion `\\(data_length\\) <= "
        "\\(240\\)'");
    for (size_t length : {0u, 3u, 7u, 15u}) {
        EXPECT_DEATH(
            TarvikGmmVad_CalculateFeatures(&vad, x.data(), length, f),
            "vad_filterbank:[0-9]+: void LogOfEnergy\\(.*\\): Assertion `\\(data_length\\) > \\(0\\)'");
    }
    const samples longer(1441);
    EXPECT_DEATH(TarvikGmmVad_CalcVad16khz(&vad, longer.data(), 481), "CalcVad16khz.*<= \\(240\\)");
    EXPECT_DEATH(TarvikGmmVad_CalcVad32khz(&vad, longer.data(), 961), "CalcVad32khz.*<= \\(240\\)");
    EXPECT_DEATH(TarvikGmmVad_CalcVad48khz(&vad, longer.data(), 1441), "CalcVad48khz.*<= \\(240\\)");
    for (int channel : {6, -1}) {
        EXPECT_DEATH(TarvikGmmVad_FindMinimum(&vad, 0, channel),
                     "\\.\\./\\.\\./gmm_vad/source/csrc/vad_sp:[0-9]+: int16_t TarvikGmmVad_FindMinimum\\("
                     "VadInstT\\*, int16_t, int32_t\\): Assertion `\\(channel\\) < \\(kNumChannels\\)'");
    }
}

TEST(VadInterface, AcceptsExactlyTheTwelveFrameLengths) {
    for (int rate : {0, -8000, 7999, 8000, 11025, 16000, 24000, 32000, 44100, 48000}) {
        const size_t piece = std::count(rates, rates + 4, rate) > 0 ? static_cast<size_t>(rate) / 100 : 9999;
        for (size_t n = 0; n < 1500; n++) {
            const bool valid = n == piece || n == 2 * piece || n == 3 * piece;
            ASSERT_EQ(TarvikGmmVad_ValidRateAndFrameLength(rate, n), valid ? 0 : -1) << rate << ' ' << n;
        }
    }
    EXPECT_EQ(TarvikGmmVad_ValidRateAndFrameLength(16000, (size_t{1} << 32) + 160), -1);
}

TEST(VadInterface, RefusalsLeaveTheInstanceAlone) {
    const samples x = speech_like(16000, 0.03, 9000, 100);
    VadInstT* const vad = TarvikGmmVad_Create();
    const VadInstT initial = detector(0);
    EXPECT_EQ(list({initial.decision, initial.min_values[95], initial.min_mean[5], initial.min_age[9]}),
              (list{1, 10000, 1600, 0}));
    for (VadInstT* refused : {vad, static_cast<VadInstT*>(nullptr)}) {
        EXPECT_EQ(TarvikGmmVad_set_mode(refused, 0), -1);
        EXPECT_EQ(TarvikGmmVad_Process(refused, 16000, x.data(), 160), -1);
    }
    EXPECT_EQ(TarvikGmmVad_Init(nullptr), -1);
    EXPECT_EQ(TarvikGmmVad_Init(vad), 0);
    EXPECT_EQ(TarvikGmmVad_set_mode(vad, 3), 0);
    EXPECT_GE(TarvikGmmVad_Process(vad, 16000, x.data(), 480), 0);
    const VadInstT used = *vad;
    for (int mode : {-1, 4, 42}) EXPECT_EQ(TarvikGmmVad_set_mode(vad, mode), -1);
    EXPECT_EQ(TarvikGmmVad_Process(vad, 16000, x.data(), 161), -1);
    EXPECT_EQ(TarvikGmmVad_Process(vad, 44100, x.data(), 441), -1);
    EXPECT_EQ(TarvikGmmVad_Process(vad, 16000, nullptr, 160), -1);
    EXPECT_TRUE(same(*vad, used));
    EXPECT_EQ(TarvikGmmVad_Init(vad), 0);
    EXPECT_TRUE(same(*vad, initial) && !same(*vad, used));
    TarvikGmmVad_Free(vad);
}

TEST(VadWrapper, DelaysOnsetsAndHoldsEndings) {
    const struct {
        int onset, hangover;
        std::string raw, reported;
    } cases[] = {
        {0, 0, "0110100", "0110100"},
        {2, 3, "00111100000110", "00001111100000"},
        {2, 3, "10000", "01110"},      // speech seen is enough for the hangover
        {0, 1, "1010011", "1111011"},  // the count starts anew with every speech frame reported
    };
    const samples silence(80);
    for (const auto& c : cases) {
        TarvikGmmVad_api_t wrapper = {nullptr, 1, 8000, c.hangover, c.onset, 9, 9, 1};  // used before
        ASSERT_EQ(TarvikGmmVad_api_Init(&wrapper, &wrapper.mode), 0);
        EXPECT_EQ(wrapper.instance->global_threshold[0], kGlobalThresholdLBR[0]);
        std::string reported;
        for (char raw : c.raw) {
            wrapper.instance->hangover = raw == '1';  // decides silent frames
            reported += static_cast<char>('0' + TarvikGmmVad_api_Process(&wrapper, silence.data(), 80));
        }
        EXPECT_EQ(reported, c.reported) << c.raw;
        TarvikGmmVad_api_deinit(&wrapper);
        TarvikGmmVad_api_deinit(&wrapper);  // finds nothing to free
    }
}

TEST(VadWrapper, PrintsItsFailures) {
    const samples silence(160);
    TarvikGmmVad_api_t wrapper = {};
    testing::internal::CaptureStdout();
    // No such mode; a length that is wrong at the rate.
    for (const auto& config : {std::array{4, 8000, 0, 0}, std::array{2, 48000, 0, 0}}) {
        EXPECT_EQ(TarvikGmmVad_api_Init(&wrapper, config.data()), config[0] == 4 ? -1 : 0);
        EXPECT_EQ(wrapper.instance == nullptr, config[0] == 4);
        EXPECT_EQ(TarvikGmmVad_api_Process(&wrapper, silence.data(), 160), -1);
        TarvikGmmVad_api_deinit(&wrapper);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "TarvikGmmVad_set_mode fail\nfailed in TarvikGmmVad_Process\nfailed in TarvikGmmVad_Process\n");
}
