#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <new>
#include <random>
#include <thread>
#include <vector>

#include "allocation_guard.h"
#include "vq_ns_pipeline.h"

/* Under these tests lie parameter tables that pass every spectrum through: what goes in comes out, delayed,
 * so that delays, counts and levels can be read off the output. */

namespace {

using Pcm = std::vector<int16_t>;
constexpr int32_t kRates[] = {8000, 11025, 16000, 22050, 24000, 32000, 44100, 48000};
/* Sanitizers make the network many times slower: what runs over all rate pairs is shortened for them. */
#ifdef VQNS_SANITIZED
constexpr int32_t kBlocksMs[] = {10, 0};
constexpr int64_t kShareOfASecond = 5;
#else
constexpr int32_t kBlocksMs[] = {1, 10, 100, 0};
constexpr int64_t kShareOfASecond = 2;
#endif

}  // namespace

#ifdef __SANITIZE_THREAD__
/* The flags of the fixed-point operators are plain variables of the process, written from every thread and
 * read by no result: the one race that is allowed. */
extern "C" const char* __tsan_default_suppressions() {
    return "race:^OverflowBit$\nrace:^CarryBit$\n";
}
#endif

namespace {

struct Engine {
    std::unique_ptr<vq_ns_data> data = std::make_unique<vq_ns_data>();
    Engine(int32_t in_rate, int32_t out_rate) {
        EXPECT_EQ(vq_ns_init(data.get(), in_rate, out_rate), 0) << in_rate << " to " << out_rate;
    }
    ~Engine() {
        rk_dsp_dgc_kwenh_deinit(&data->gain_control);
        vq_ns_deinit(data.get());
    }
    operator vq_ns_data*() {
        return data.get();
    }
};

/* Lines printed on standard output while `body` runs. */
template <class Body>
std::string printed(Body body) {
    testing::internal::CaptureStdout();
    body();
    return testing::internal::GetCapturedStdout();
}

Pcm noise(size_t n, uint32_t seed, int amplitude = 8000) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> uniform(-amplitude, amplitude);
    Pcm x(n);
    for (int16_t& v : x) v = static_cast<int16_t>(uniform(random));
    return x;
}

Pcm tone(size_t n, double hz, int32_t rate, double amplitude = 8000) {
    Pcm x(n);
    for (size_t t = 0; t < n; ++t) {
        x[t] = static_cast<int16_t>(
            std::lround(amplitude * std::sin(2 * M_PI * hz * static_cast<double>(t) / rate)));
    }
    return x;
}

double rms(const int16_t* x, size_t n) {
    double sum = 0;
    for (size_t i = 0; i < n; ++i) sum += static_cast<double>(x[i]) * x[i];
    return std::sqrt(sum / static_cast<double>(n));
}

TEST(Engine, StartUpIn10msCalls) {
    Engine a(16000, 16000), b(16000, 16000), c(16000, 16000);
    const Pcm in = noise(160 * 20, 1);
    Pcm out(160);
    for (int call = 1; call <= 20; ++call) {
        const int16_t* piece = in.data() + 160 * (call - 1);
        const int32_t want = call < 6 ? 0 : 160;
        EXPECT_EQ(vq_ns_process(a, piece, out.data(), 160), want) << call;
        EXPECT_EQ(vq_ns_process_tenms(b, piece, out.data(), 160), want) << call;
        EXPECT_EQ(vq_ns_proc(c, piece, out.data(), 160), want) << call;
        const int16_t pending = c.data->pending_count;
        EXPECT_EQ(pending, call < 5 ? 0 : 160) << call;
        EXPECT_EQ(c.data->network.warm_up, std::clamp(call - 2, 0, 3)) << call;
        EXPECT_EQ(c.data->output_started, call >= 5) << call;
        EXPECT_EQ(c.data->hop_counter, call);
        EXPECT_EQ(c.data->history_slot, std::max(0, call - 2) % 5) << call;
        EXPECT_EQ(c.data->decoder_slot, std::max(0, call - 4) % 5) << call;
    }
    for (int bin = 257; bin < 265; ++bin) {
        EXPECT_EQ(c.data->spectrum_re[bin], 0.0f);
        EXPECT_EQ(c.data->spectrum_im[bin], 0.0f);
    }
}

TEST(Engine, PassesItsInputThroughDelayedBy800SamplesAtUnityGain) {
    Engine engine(16000, 16000);
    ASSERT_EQ(vq_ns_delay(engine), 800);
    const Pcm in = noise(16000, 2);
    Pcm out(16000);
    for (size_t at = 0; at < in.size(); at += 160) {
        const int32_t r = vq_ns_proc(engine, in.data() + at, out.data() + at, 160);
        if (r == 0) std::fill_n(out.begin() + static_cast<ptrdiff_t>(at), 160, int16_t{0});
    }
    double error = 0, signal = 0;
    for (size_t t = 800 + 480; t < out.size(); ++t) {
        error += std::pow(out[t] - in[t - 800], 2);
        signal += std::pow(in[t - 800], 2);
    }
    /* Bin 0 loses half of its value and the imaginary part of bin 256 is none: what is left is far below the
     * signal. */
    EXPECT_GT(10 * std::log10(signal / error), 20);
    Engine with_tone(16000, 16000);
    const Pcm sine = tone(16000, 1000, 16000);
    for (size_t at = 0; at < sine.size(); at += 160)
        vq_ns_proc(with_tone, sine.data() + at, out.data() + at, 160);
    for (size_t t = 1600; t < out.size(); ++t) ASSERT_NEAR(out[t], sine[t - 800], 2) << t;
}

/* The delay seen from outside: the lag at which the output agrees best with the input, both at their own
 * rates. */
TEST(Engine, DelayIsExactAtEveryRatePair) {
    for (const int32_t from : kRates) {
        for (const int32_t to : kRates) {
            auto data = std::make_unique<vq_ns_data>();
            ASSERT_EQ(vq_ns_reset(data.get(), from, to), 0);
            const int32_t delay = vq_ns_delay(data.get());
            /* A burst of a low tone: its phase tells the delay to a fraction of a sample. */
            const double hz = 440, centre = 0.2, width = 0.04;
            const auto burst = [&](double seconds) {
                const double d = (seconds - centre) / width;
                return 8000 * std::exp(-d * d) * std::sin(2 * M_PI * hz * (seconds - centre));
            };
            const int32_t piece = from / 100;
            Pcm in(static_cast<size_t>(piece)), out(6000);
            std::vector<double> heard;
            for (int call = 0; call < 45; ++call) {
                for (int32_t i = 0; i < piece; ++i) {
                    in[static_cast<size_t>(i)] = static_cast<int16_t>(
                        std::lround(burst(static_cast<double>(call * piece + i) / from)));
                }
                const int32_t r = vq_ns_proc(data.get(), in.data(), out.data(), piece);
                ASSERT_GE(r, 0);
                /* Silence as long as the samples that were due. */
                const size_t due = static_cast<size_t>(static_cast<int64_t>(call + 1) * piece * to / from);
                if (r == 0) heard.resize(due);
                for (int32_t i = 0; i < r; ++i) heard.push_back(out[static_cast<size_t>(i)]);
            }
            double error = 0, signal = 0;
            for (size_t t = 0; t < heard.size(); ++t) {
                const double want = burst((static_cast<double>(t) - delay) / to);
                error += (heard[t] - want) * (heard[t] - want);
                signal += want * want;
            }
            /* Half a sample off is a difference of -15 dB or less at 8 kHz, a whole one -9 dB. */
            EXPECT_GT(10 * std::log10(signal / error), 14) << from << " to " << to << ", delay " << delay;
        }
    }
}

TEST(Engine, DeliversTheExactRatioAtEveryRatePairAndBlockSize) {
    std::mt19937 random(3);
    for (const int32_t from : kRates) {
        for (const int32_t to : kRates) {
            for (const int32_t block_ms : kBlocksMs) {
                auto data = std::make_unique<vq_ns_data>();
                ASSERT_EQ(vq_ns_reset(data.get(), from, to), 0);
                const Pcm in = noise(static_cast<size_t>(from / 10), 4);
                Pcm out(4810);
                int64_t fed = 0, written = 0, undelivered = 0;
                for (int call = 0; fed < from / kShareOfASecond; ++call) {
                    /* 0: any length from a millisecond on. */
                    const int32_t shortest = from / 1000 + 1, longest = from / 10;
                    const int32_t n =
                        block_ms > 0
                            ? from / 100 * block_ms / 10
                            : shortest +
                                  static_cast<int32_t>(random() % static_cast<uint32_t>(longest - shortest));
                    if (n < 1) break;
                    std::fill(out.begin(), out.end(), int16_t{21846});
                    const int32_t r = vq_ns_proc(data.get(), in.data(), out.data(), n);
                    ASSERT_GE(r, 0) << from << " to " << to << " block " << n;
                    ASSERT_EQ(out[static_cast<size_t>(r)], 21846)
                        << "a sample beyond those returned was written";
                    fed += n;
                    written += r;
                    if (r == 0) undelivered += n;
                    ASSERT_LE(data->pending_count, VQ_NS_PENDING);
                }
                const double due = static_cast<double>(fed - undelivered) * to / from;
                EXPECT_NEAR(static_cast<double>(written), due, from == to ? 0 : 1.5)
                    << from << " to " << to << " blocks of " << block_ms << " ms";
            }
        }
    }
}

TEST(Engine, FractionsOfASampleAreCarriedWithoutFusing) {
    auto data = std::make_unique<vq_ns_data>();
    const Pcm in(160);
    Pcm out(1000);
    for (const auto& [rate, count] : {std::pair{48000, 480}, {44100, 441}, {24000, 240}}) {
        vq_ns_reset(data.get(), 16000, rate);
        for (int call = 0; call < 300; ++call) {
            const int32_t r = vq_ns_proc(data.get(), in.data(), out.data(), 160);
            ASSERT_EQ(r, call < 5 ? 0 : count) << rate << " call " << call;
        }
    }
    vq_ns_reset(data.get(), 16000, 11025);
    int32_t sum = 0;
    for (int call = 0; call < 105; ++call) sum += vq_ns_proc(data.get(), in.data(), out.data(), 160);
    EXPECT_EQ(sum, 11025) << "a second and five silent calls";
    EXPECT_EQ(data->output_per_ms, 11.025f);
}

TEST(Engine, BlocksOfAnySizeGiveTheSameSamples) {
    const Pcm in = noise(16000, 5);
    const auto run = [&](std::vector<int> sizes) {
        Engine engine(16000, 16000);
        Pcm all, out(16000);
        size_t at = 0;
        for (size_t turn = 0; at < in.size(); ++turn) {
            const size_t n = std::min(static_cast<size_t>(sizes[turn % sizes.size()]), in.size() - at);
            const int32_t r = vq_ns_process(engine, in.data() + at, out.data(), static_cast<int32_t>(n));
            EXPECT_TRUE(r == 0 || r == static_cast<int32_t>(n)) << r;
            if (r > 0) all.insert(all.end(), out.begin(), out.begin() + r);
            at += n;
        }
        return all;
    };
    const Pcm whole = run({160});
    ASSERT_GT(whole.size(), 14000u);
    /* Held samples, pieces completed from two calls, blocks below a piece, blocks of 100 ms. */
    for (const auto& sizes :
         std::vector<std::vector<int>>{{100, 220, 160}, {1}, {64}, {1600}, {7, 333, 159, 161}}) {
        const Pcm got = run(sizes);
        ASSERT_GT(got.size(), 12000u) << sizes[0];
        const size_t n = std::min(got.size(), whole.size());
        EXPECT_EQ(std::memcmp(got.data(), whole.data(), n * sizeof(int16_t)), 0) << sizes[0];
    }
}

TEST(Engine, RemainderOfASeriesOfOddCalls) {
    Engine engine(16000, 16000);
    const Pcm in = noise(480, 6);
    Pcm out(480);
    const std::pair<int32_t, int> steps[] = {{100, 100}, {220, 0}, {160, 0}, {0, 0},
                                             {-5, 0},    {59, 59}, {50, 109}};
    int pieces = 0;
    for (const auto& [count, held] : steps) {
        const int32_t r = vq_ns_process(engine, in.data(), out.data(), count);
        EXPECT_EQ(r, count < 1 ? count : 0);
        EXPECT_EQ(engine.data->remainder_count, held) << count;
    }
    pieces = engine.data->hop_counter;
    EXPECT_EQ(pieces, 3);
    EXPECT_EQ(vq_ns_proc(engine, in.data(), out.data(), 0), 0);
    EXPECT_EQ(vq_ns_proc(engine, in.data(), out.data(), -3), 0);
    EXPECT_EQ(engine.data->hop_counter, 3);
}

TEST(Engine, BlocksOver100msAreRefused) {
    const Pcm in = noise(4801, 7);
    Pcm out(4801);
    for (const int32_t rate : kRates) {
        auto data = std::make_unique<vq_ns_data>();
        vq_ns_reset(data.get(), rate, 16000);
        const auto before = std::make_unique<vq_ns_data>(*data);
        EXPECT_EQ(vq_ns_proc(data.get(), in.data(), out.data(), INT32_MAX), -1) << rate;
        EXPECT_EQ(vq_ns_proc(data.get(), in.data(), out.data(), rate / 10 + 1), -1) << rate;
        before->call_duration = 100;
        EXPECT_EQ(std::memcmp(data.get(), before.get(), sizeof *before), 0) << "nothing else is touched";
        EXPECT_GE(vq_ns_proc(data.get(), in.data(), out.data(), rate / 10), 0) << rate;
    }
    Engine engine(16000, 16000);
    EXPECT_EQ(vq_ns_process_tenms(engine, in.data(), out.data(), 1601), -1);
    for (const int32_t want : {0, 0, 1600, 1600}) {
        EXPECT_EQ(vq_ns_process_tenms(engine, in.data(), out.data(), 1600), want);
    }
}

TEST(Engine, ABlockBelowAMillisecondIsDroppedWhereTheInputIsConverted) {
    auto data = std::make_unique<vq_ns_data>();
    vq_ns_reset(data.get(), 48000, 16000);
    const Pcm in = noise(480, 8);
    Pcm out(480);
    for (int call = 0; call < 8; ++call) vq_ns_proc(data.get(), in.data(), out.data(), 480);
    const int32_t hops = data->hop_counter;
    const int16_t pending = data->pending_count;
    EXPECT_EQ(vq_ns_proc(data.get(), in.data(), out.data(), 40), 13) << "delivered from what is pending";
    EXPECT_EQ(data->pending_count, pending - 13);
    EXPECT_EQ(data->carry_count, 0);
    EXPECT_EQ(data->hop_counter, hops);
}

TEST(Engine, FullQueueIsReportedAndKept) {
    Engine engine(8000, 16000);
    const Pcm in = noise(80, 9);
    Pcm out(80);
    const std::string lines = printed([&] {
        int32_t r = 0;
        for (int call = 0; call < 1000 && r >= 0; ++call)
            r = vq_ns_process(engine, in.data(), out.data(), 80);
        EXPECT_EQ(r, -1);
    });
    EXPECT_EQ(lines, "Data Unable to Process by VQNS\n");
    const int16_t full = engine.data->queue_count;
    EXPECT_GE(full, VQ_NS_QUEUE - 160);
    const Pcm queue(engine.data->queue, engine.data->queue + full);
    printed([&] { EXPECT_EQ(vq_ns_process(engine, in.data(), out.data(), 80), -1); });
    EXPECT_EQ(Pcm(engine.data->queue, engine.data->queue + engine.data->queue_count), queue);
}

TEST(Engine, ABlockTooLongForTheQueueLeavesTheStreamAsItWas) {
    Engine engine(16000, 16000), undisturbed(16000, 16000);
    const Pcm in = noise(16000, 12);
    Pcm out(16000), want(200);
    for (int call = 0; call < 20; ++call) {
        if (call == 9) {
            printed([&] { EXPECT_EQ(vq_ns_process(engine, in.data(), out.data(), 16000), -1); });
            printed([&] { EXPECT_EQ(vq_ns_process(engine, in.data(), out.data(), INT32_MAX), -1); });
        }
        const int16_t* block = in.data() + call * 200;
        const int32_t r = vq_ns_process(undisturbed, block, want.data(), 200);
        ASSERT_EQ(vq_ns_process(engine, block, out.data(), 200), r) << call;
        ASSERT_TRUE(std::equal(want.begin(), want.begin() + r, out.begin())) << call;
    }
}

TEST(Engine, HopsAndMapsOfOtherSizesAreRefused) {
    auto data = std::make_unique<vq_ns_data>();
    vq_ns_reset(data.get(), 16000, 16000);
    const auto before = std::make_unique<vq_ns_data>(*data);
    const Pcm in = noise(20000, 13);
    Pcm out(20000);
    std::vector<float> floats(20000);
    for (const int32_t count : {-160, 0, 159, 161, 320, 20000}) {
        EXPECT_EQ(vq_ns_dnn_proc(data.get(), in.data(), out.data(), count), -1);
        EXPECT_EQ(vq_ns_dpcrn_proc(data.get(), in.data(), floats.data(), count), -1);
        EXPECT_EQ(vq_ns_dpcrn_encoder(data.get(), floats.data(), floats.data(), count), -1);
        vq_ns_dpcrn_decoder(data.get(), floats.data(), floats.data(), count);
    }
    EXPECT_EQ(std::memcmp(data.get(), before.get(), sizeof *before), 0);
}

TEST(Engine, RefusesRatesThatItCannotServe) {
    const Pcm in = noise(480, 10);
    Pcm out(480);
    for (const auto& [from, to] : {std::pair{12000, 16000},
                                   {16000, 12000},
                                   {48100, 48100},
                                   {0, 16000},
                                   {99, 99},
                                   {-8000, 16000},
                                   {16000, 0},
                                   {96000, 48000},
                                   {INT32_MIN, INT32_MAX}}) {
        auto data = std::make_unique<vq_ns_data>();
        EXPECT_EQ(printed([&, f = from, t = to] { EXPECT_EQ(vq_ns_init(data.get(), f, t), -1); }), "")
            << from;
        EXPECT_EQ(vq_ns_process_tenms(data.get(), in.data(), out.data(), 160), -1);
        EXPECT_EQ(vq_ns_proc(data.get(), in.data(), out.data(), 160), -1);
        EXPECT_EQ(vq_ns_sprocess(data.get(), in.data(), in.data(), out.data(), out.data(), 80), -1);
        EXPECT_EQ(vq_ns_delay(data.get()), -1);
        const std::string lines =
            printed([&] { EXPECT_EQ(vq_ns_process(data.get(), in.data(), out.data(), 160), -1); });
        EXPECT_EQ(lines, from < 100 ? "" : "Data Unable to Process by VQNS\n") << from;
    }
}

TEST(Engine, NullPointersAreRefused) {
    Engine engine(16000, 16000);
    int16_t in[160] = {}, out[160];
    EXPECT_EQ(vq_ns_init(nullptr, 16000, 16000), -1);
    EXPECT_EQ(vq_ns_delay(nullptr), -1);
    EXPECT_EQ(vq_ns_process(engine, nullptr, nullptr, 0), 0);
    for (const auto process : {vq_ns_process, vq_ns_process_tenms}) {
        EXPECT_EQ(process(nullptr, in, out, 160), -1);
        EXPECT_EQ(process(engine, nullptr, out, 160), -1);
        EXPECT_EQ(process(engine, in, nullptr, 160), -1);
    }
    EXPECT_EQ(vq_ns_sprocess(nullptr, in, in, out, out, 80), -1);
    EXPECT_EQ(vq_ns_sprocess(engine, nullptr, in, out, out, 80), -1);
    EXPECT_EQ(vq_ns_sprocess(engine, in, nullptr, out, out, 80), -1);
    EXPECT_EQ(vq_ns_sprocess(engine, in, in, nullptr, out, 80), -1);
    EXPECT_EQ(vq_ns_sprocess(engine, in, in, out, nullptr, 80), -1);
    EXPECT_EQ(vq_ns_deinit(nullptr), 0);
    EXPECT_EQ(vq_ns_deinit(engine), 0);
}

TEST(Engine, BandsPassThroughWithTheirOwnDelay) {
    Engine engine(16000, 16000);
    const size_t n = 8000;
    const Pcm low = tone(n, 700, 8000, 4000), high = tone(n, 900, 8000, 3000);
    Pcm low_out(n), high_out(n);
    for (size_t at = 0; at < n; at += 80) {
        const int32_t r = vq_ns_sprocess(engine, low.data() + at, high.data() + at, low_out.data() + at,
                                         high_out.data() + at, 80);
        ASSERT_EQ(r, at < 400 ? 0 : 80) << at;
    }
    /* Merge and split delay by 22 full-rate samples, 11 of a band, beside the engine's 400. */
    double worst_low = 0, worst_high = 0;
    for (size_t t = 1000; t < n; ++t) {
        worst_low = std::max(worst_low, std::fabs(low_out[t] - low[t - 411] * 1.0));
        worst_high = std::max(worst_high, std::fabs(high_out[t] - high[t - 411] * 1.0));
    }
    EXPECT_LT(worst_low, 60);
    EXPECT_LT(worst_high, 60);
    const auto before = std::make_unique<vq_ns_data>(*engine.data);
    EXPECT_EQ(vq_ns_sprocess(engine, low.data(), high.data(), low_out.data(), high_out.data(), 481), -1);
    EXPECT_EQ(std::memcmp(engine.data.get(), before.get(), sizeof *before), 0);
    EXPECT_EQ(vq_ns_sprocess(engine, low.data(), high.data(), low_out.data(), high_out.data(), 480), 480);
}

TEST(Engine, ResetGivesTheSameRecordAndInitASecondTimeTheSameStream) {
    auto a = std::make_unique<vq_ns_data>();
    vq_ns_reset(a.get(), 44100, 8000);
    const auto fresh = std::make_unique<vq_ns_data>(*a);
    const Pcm in = noise(441 * 12, 11);
    Pcm first(6000), second(6000);
    const auto run = [&](Pcm& out) {
        size_t written = 0;
        for (size_t at = 0; at < in.size(); at += 441) {
            written += static_cast<size_t>(vq_ns_proc(a.get(), in.data() + at, out.data() + written, 441));
        }
        return written;
    };
    const size_t n = run(first);
    ASSERT_GT(n, 400u);
    vq_ns_reset(a.get(), 44100, 8000);
    EXPECT_EQ(std::memcmp(a.get(), fresh.get(), sizeof *fresh), 0);
    EXPECT_EQ(run(second), n);
    EXPECT_EQ(first, second);
}

TEST(Engine, InterleavedInstancesDoNotMeet) {
    const Pcm x = noise(8000, 12), y = noise(8000, 13);
    const auto run = [](vq_ns_data* ns, const int16_t* in, Pcm& out) {
        int16_t block[160];
        if (vq_ns_process(ns, in, block, 160) == 160) out.insert(out.end(), block, block + 160);
    };
    Engine alone(16000, 16000), a(16000, 16000), b(16000, 16000);
    Pcm want, got, other;
    for (size_t at = 0; at < x.size(); at += 160) run(alone, x.data() + at, want);
    for (size_t at = 0; at < x.size(); at += 160) {
        run(a, x.data() + at, got);
        run(b, y.data() + at, other);
    }
    EXPECT_EQ(want, got);
    EXPECT_NE(got, other);
}

TEST(Engine, InstancesRunOnThreadsOfTheirOwn) {
    Engine a(16000, 16000), b(48000, 16000);
    const Pcm x = noise(160 * 30, 14), y = noise(480 * 30, 15);
    const auto run = [](vq_ns_data* ns, const Pcm& in, int32_t piece, int64_t* heard) {
        int16_t out[480];
        for (size_t at = 0; at < in.size(); at += static_cast<size_t>(piece)) {
            const int32_t r = vq_ns_process_tenms(ns, in.data() + at, out, piece);
            for (int32_t i = 0; i < r; ++i) *heard += out[i] != 0;
        }
    };
    int64_t heard_a = 0, heard_b = 0;
    std::thread first([&] { run(a, x, 160, &heard_a); });
    std::thread second([&] { run(b, y, 480, &heard_b); });
    first.join();
    second.join();
    EXPECT_GT(heard_a, 3000);
    EXPECT_GT(heard_b, 3000);
}

TEST(Engine, ProcessingNeverAllocates) {
    for (const int32_t rate : kRates) {
        Engine engine(rate, 16000);
        const Pcm in = tone(static_cast<size_t>(rate / 100), 300, rate, 20000);
        Pcm out(480);
        const long before = allocations;
        for (int call = 0; call < 30; ++call) {
            vq_ns_process_tenms(engine, in.data(), out.data(), rate / 100);
            vq_ns_sprocess(engine, in.data(), in.data(), out.data(), out.data() + 240, rate / 200);
        }
        EXPECT_EQ(allocations, before) << rate;
    }
    const long before = allocations;
    Engine seen(16000, 16000);
    EXPECT_GT(allocations, before) << "the guard sees an allocation";
}

TEST(Engine, HostileInputStaysInRangeAndRecovers) {
    for (const int32_t rate : {8000, 16000, 48000}) {
        Engine engine(rate, 16000);
        const size_t piece = static_cast<size_t>(rate / 100);
        Pcm in(piece), out(480);
        std::mt19937 random(16);
        for (int call = 0; call < 300; ++call) {
            for (size_t i = 0; i < piece; ++i) {
                const int shape = call / 60;
                in[i] = shape == 0   ? INT16_MIN
                        : shape == 1 ? (i % 2 ? INT16_MIN : INT16_MAX)
                        : shape == 2 ? static_cast<int16_t>(random() % 2 ? INT16_MIN : INT16_MAX)
                        : shape == 3 ? static_cast<int16_t>(random() % 3) - 1
                                     : 0;
            }
            const int32_t r = vq_ns_process_tenms(engine, in.data(), out.data(), static_cast<int32_t>(piece));
            for (int32_t i = 0; i < r; ++i) ASSERT_NE(out[static_cast<size_t>(i)], INT16_MIN);
        }
        EXPECT_LT(rms(out.data(), 160), 2) << "silence after noise at full scale";
        for (const auto& state : engine.data->network.recurrent_state) {
            for (const float v : state) ASSERT_TRUE(std::isfinite(v));
        }
    }
}

TEST(Engine, TheHostsFloatModeIsKept) {
    Engine engine(16000, 16000);
    const Pcm in = noise(160, 17);
    Pcm out(160);
    const unsigned upwards = 0x5f80;
    const unsigned before = __builtin_ia32_stmxcsr();
    __builtin_ia32_ldmxcsr(upwards);
    for (int call = 0; call < 7; ++call) vq_ns_process(engine, in.data(), out.data(), 160);
    const unsigned after = __builtin_ia32_stmxcsr();
    __builtin_ia32_ldmxcsr(before);
    EXPECT_EQ(after & 0xffc0u, upwards & 0xffc0u);
}

TEST(Engine, PublishesItself) {
    EXPECT_EQ(vq_ns_data_size(), sizeof(vq_ns_data));
    EXPECT_EQ(vq_ns_data_alignment(), alignof(vq_ns_data));
    EXPECT_EQ(offsetof(vq_ns_data, network) % 64, 0u);
    EXPECT_EQ(offsetof(vq_ns_data, history_im) - offsetof(vq_ns_data, history_re), 5 * 265 * sizeof(float));
    int major = -1, minor = -1, patch = -1;
    EXPECT_EQ(std::sscanf(vqns_version(), "%d.%d.%d", &major, &minor, &patch), 3);
}

}  // namespace
