#include "rate_converter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <fstream>
#include <numbers>
#include <numeric>
#include <random>
#include <sstream>
#include <vector>

#include "channel_layout.h"
#include "rate_converter_filters.h"
#include "rate_converter_info.h"

namespace {

using Pcm = std::vector<int16_t>;

struct Table {
    int up, down;
    bool low_complexity;
    const int16_t* taps;
    size_t size;

    int branch_taps() const {
        return ((low_complexity ? 10 : 20) * std::max(up, down) + 1) / up;
    }
    int at(int k) const {  // prototype order; zero outside
        return k < 0 || k >= up * branch_taps() ? 0 : taps[(k % up) * branch_taps() + k / up];
    }
    double magnitude(double f) const {  // at f cutoff frequencies, relative to unity gain
        std::complex<double> sum = 0;
        for (int k = 0; k < up * branch_taps(); ++k)
            sum += std::polar(1.0 * at(k), -std::numbers::pi * f * k / std::max(up, down));
        return std::abs(sum) / (32768.0 * up);
    }
};

#define SHORT(L, M) \
    { L, M, true, rk_voip_dsp_ph_##L##_by_##M##_lcmplx, std::size(rk_voip_dsp_ph_##L##_by_##M##_lcmplx) }
#define BOTH(L, M) \
    {L, M, false, rk_voip_dsp_ph_##L##_by_##M, std::size(rk_voip_dsp_ph_##L##_by_##M)}, SHORT(L, M)
const Table kTables[] = {BOTH(1, 2),  BOTH(1, 3), BOTH(1, 4), SHORT(1, 6), SHORT(1, 8), BOTH(2, 1),
                         SHORT(2, 3), BOTH(2, 7), BOTH(3, 1), SHORT(3, 4), BOTH(3, 5),  BOTH(3, 10),
                         SHORT(4, 1), BOTH(4, 7), BOTH(5, 3), BOTH(5, 8),  BOTH(5, 9),  BOTH(6, 1),
                         BOTH(7, 4),  BOTH(7, 8), BOTH(8, 7), BOTH(9, 5),  BOTH(9, 10), BOTH(9, 20),
                         BOTH(10, 9), BOTH(20, 9)};

// The table of a stage, by the ratio it was made for.
const Table& table_for(int up, int down, bool low_complexity) {
    const int shared[][3] = {{10, 3, 9}, {3, 2, 1}, {4, 3, 1}};
    for (const auto& s : shared)
        if (up == s[0] && down == s[1]) down = s[2];
    for (const Table& table : kTables)
        if (table.up == up && table.down == down && table.low_complexity == low_complexity) return table;
    throw std::runtime_error("no table");
}

struct Stage {
    int up, down;
};

// The cascade of a pair of rates, from the published table.
std::vector<Stage> cascade(uint32_t from, uint32_t to, uint32_t flag) {
    const auto index = [](uint32_t rate) {
        return std::find(rk_voip_dsp_mxr_smpr, rk_voip_dsp_mxr_smpr + 9, rate) - rk_voip_dsp_mxr_smpr;
    };
    const auto code = index(from) * 10 + index(to);
    for (const auto offset : {flag == 1 ? 2000 : 0, 0})
        for (const auto& row : rk_voip_dsp_src_info)
            if (row[0] == code + offset) {
                std::vector<Stage> stages;
                for (int s = 1; s < 7 && row[s] > 0; s += 2) stages.push_back({row[s], row[s + 1]});
                return stages;
            }
    throw std::runtime_error("no route");
}

// A stage over a whole signal: output m is the filter at up-sampled position m * M.
Pcm convert(const Pcm& in, Stage stage, const Table& table) {
    Pcm out;
    const int taps = table.branch_taps();
    for (int64_t q = 0; q < static_cast<int64_t>(in.size()) * stage.up; q += stage.down) {
        const int64_t n = q / stage.up, p = q % stage.up;
        int64_t sum = 0;
        for (int64_t j = 0; j < taps && j <= n; ++j)
            sum += int64_t{table.taps[p * taps + j]} * in[static_cast<size_t>(n - j)];
        const int64_t floor = sum >= 0 ? sum / 32768 : -((-sum + 32767) / 32768);
        out.push_back(static_cast<int16_t>(std::min<int64_t>(32767, std::max<int64_t>(-32768, floor))));
    }
    return out;
}

Pcm convert(Pcm signal, uint32_t from, uint32_t to, uint32_t flag) {
    for (const Stage& stage : cascade(from, to, flag))
        signal = convert(signal, stage, table_for(stage.up, stage.down, flag != 0));
    return signal;
}

// A converter for blocks of at most `largest`. Its work buffer, and its output in every call, have exactly
// the room that is documented.
struct Converter {
    std::vector<unsigned char> memory{std::vector<unsigned char>(RK_VOIP_DSP_SRC_BYTES(0))};
    rk_voip_dsp_src_inst_t* handle = nullptr;

    Converter(uint32_t from, uint32_t to, uint32_t layout, uint32_t flag, size_t largest) {
        for (int round = 0; round < 2; ++round) {  // the first for its size alone
            handle = reinterpret_cast<rk_voip_dsp_src_inst_t*>(memory.data());
            EXPECT_EQ(rk_voip_dsp_src_init(&handle, from, to, layout, flag), 0);
            memory.resize(RK_VOIP_DSP_SRC_BYTES(room(largest).work));
            memory.shrink_to_fit();
        }
    }
    vqns::ConverterRoom room(size_t count) const {
        return vqns::converter_room(*handle, static_cast<int32_t>(count));
    }
    // In blocks of the sizes given, again and again.
    Pcm operator()(const Pcm& in, const std::vector<size_t>& blocks) {
        Pcm out;
        for (size_t i = 0, b = 0; i < in.size(); i += blocks[b++ % blocks.size()]) {
            const size_t n = std::min(blocks[b % blocks.size()], in.size() - i);
            Pcm block(&in[i], &in[i] + n), part(static_cast<size_t>(room(n).out));
            const int32_t count =
                rk_voip_dsp_src_proc(&handle, block.data(), part.data(), static_cast<int32_t>(n));
            EXPECT_LE(static_cast<size_t>(count), part.size());
            part.resize(static_cast<size_t>(count));
            out.insert(out.end(), part.begin(), part.end());
        }
        return out;
    }
};

// Noise, full-scale square waves slow enough to overshoot in any filter, the smallest sample held, random
// full-scale signs, and silence.
Pcm hostile(size_t length) {
    std::mt19937 random(7);
    Pcm in(length);
    for (size_t i = 0; i < length; ++i) {
        const size_t part = i / 150 % 5, half_period = 5 + 20 * (i / 750 % 3);
        in[i] = part == 0   ? static_cast<int16_t>(random())
                : part == 1 ? (i / half_period % 2 ? INT16_MAX : INT16_MIN)
                : part == 2 ? INT16_MIN
                : part == 3 ? (random() & 1 ? INT16_MAX : INT16_MIN)
                            : int16_t{0};
    }
    return in;
}

template <class Body>
void for_each_route(Body body) {
    const uint32_t rates[] = {8000, 11025, 16000, 22050, 24000, 32000, 44100, 48000};
    for (const uint32_t from : rates)
        for (const uint32_t to : rates)
            for (uint32_t flag = 0; from != to && flag < 3; ++flag) {
                SCOPED_TRACE(testing::Message() << from << " to " << to << " flag " << flag);
                body(from, to, flag);
            }
}

TEST(RateConverterTables, HaveTheirShape) {
    EXPECT_EQ(std::size(kTables), 47u);
    for (const Table& t : kTables) {
        SCOPED_TRACE(testing::Message()
                     << t.up << " by " << t.down << (t.low_complexity ? " short" : " long"));
        const int wider = std::max(t.up, t.down), taps = t.branch_taps(), length = t.up * taps;
        const int centre = length / 2;
        ASSERT_EQ(t.size, static_cast<size_t>(length));
        EXPECT_LE(2 * taps, RK_SRC_HISTORY);
        for (int k = 0; k < length; ++k) ASSERT_EQ(t.at(k), t.at(2 * centre - k)) << k;
        if (t.taps == rk_voip_dsp_ph_1_by_3) {
            const int run[] = {4472, 9010, 922, 9010, 4472, 0, 2170, 1697, 0, 1141, 961, 0, -700, -602};
            for (int i = 0; i < 14; ++i) EXPECT_EQ(t.taps[28 + i], run[i]) << i;
            EXPECT_EQ(std::accumulate(t.taps, t.taps + 61, 0), 38216);
            continue;
        }
        int largest = std::min(32767, 32768 * t.up / wider);
        if (t.up == 7 && t.down == 8) largest = 28671;
        EXPECT_EQ(t.at(centre), largest);
        EXPECT_EQ(*std::max_element(t.taps, t.taps + length), largest);
        for (int p = 0; p < t.up; ++p) {
            const int16_t* branch = t.taps + p * taps;
            EXPECT_NEAR(std::accumulate(branch, branch + taps, 0), 32768, 1) << p;
            EXPECT_TRUE(t.up < t.down || p > 0 || std::count(branch, branch + taps, 0) == taps - 1);
        }
        // The figures that the table source states for its families, at their weakest table.
        const double pass = t.low_complexity ? 0.65 : 0.8, stop = 2 - pass;
        double ripple = 0, leak = 0;
        for (double f = 0; f <= pass; f += 0.01)
            ripple = std::max(ripple, std::fabs(20 * std::log10(t.magnitude(f))));
        for (double f = stop; f <= wider; f += 0.01) leak = std::max(leak, t.magnitude(f));
        EXPECT_LE(ripple, t.low_complexity ? 0.02 : 0.008);
        EXPECT_LE(20 * std::log10(leak), t.low_complexity ? -52.9 : -61.5);
    }
}

TEST(RateConverterTables, AreWhatTheDesignProgramWrites) {
    std::ifstream file(VQNS_SOURCE_DIR "/src/rate_converter_filters.cpp", std::ios::binary);
    std::stringstream committed;
    committed << file.rdbuf();
    std::string designed;
    std::FILE* program = popen(DESIGN_FILTERS, "r");
    ASSERT_NE(program, nullptr);
    char piece[4096];
    for (size_t n; (n = fread(piece, 1, sizeof piece, program)) > 0;) designed.append(piece, n);
    EXPECT_EQ(pclose(program), 0);
    EXPECT_GT(designed.size(), 30000u);
    EXPECT_TRUE(designed == committed.str()) << "run design_filters > src/rate_converter_filters.cpp";
}

TEST(RateConverterRoutes, MultiplyToTheRatioOfTheirRates) {
    int pairs = 0, shorter = 0;
    for (int i = 0; i < 100; ++i) {
        const int16_t* row = rk_voip_dsp_src_info[i];
        if (i >= 70) {
            EXPECT_TRUE(std::all_of(row, row + 7, [](int16_t v) { return v == 0; })) << i;
            continue;
        }
        const int code = row[0] % 1000;
        int64_t up = 1, down = 1;
        for (int s = 1; s < 7; s += 2)
            if (row[s] > 0) up *= row[s], down *= row[s + 1];
        EXPECT_EQ(up * rk_voip_dsp_mxr_smpr[code / 10], down * rk_voip_dsp_mxr_smpr[code % 10]) << row[0];
        (row[0] < 2000 ? pairs : shorter) += 1;
    }
    EXPECT_EQ(pairs, 56);
    EXPECT_EQ(shorter, 14);
    // Other stages of the same ratio, or the same in another order, would sound alike but not be equal.
    uint64_t digest = 0;
    for (const auto& row : rk_voip_dsp_src_info) {
        uint64_t of_row = 0;
        for (const int16_t value : row) of_row = of_row * 0x100000001b3 + static_cast<uint16_t>(value);
        digest += of_row;
    }
    EXPECT_EQ(digest, 10523886926939335641u);
    const auto text = [](const std::vector<Stage>& stages) {
        std::string s;
        for (const Stage& stage : stages)
            s += std::to_string(stage.up) + "/" + std::to_string(stage.down) + " ";
        return s;
    };
    EXPECT_EQ(text(cascade(24000, 8000, 0)), "7/4 1/3 4/7 ");
    EXPECT_EQ(text(cascade(24000, 8000, 1)), "1/3 ");
    EXPECT_EQ(text(cascade(48000, 32000, 0)), "2/1 1/3 ");
    EXPECT_EQ(text(cascade(48000, 32000, 1)), "2/3 ");
    EXPECT_EQ(text(cascade(48000, 32000, 2)), "2/1 1/3 ");
    EXPECT_EQ(text(cascade(11025, 32000, 1)), "8/7 8/7 20/9 ");
}

TEST(RateConverter, EqualsTheDirectFormOnEveryRoute) {
    const Pcm in = hostile(2250);
    for_each_route([&](uint32_t from, uint32_t to, uint32_t flag) {
        const Pcm expected = convert(in, from, to, flag);
        const auto [low, high] = std::minmax_element(expected.begin(), expected.end());
        EXPECT_TRUE(*low == INT16_MIN && *high == INT16_MAX) << "saturation is not put to the test";
        Converter converter(from, to, RK_SRC_MONO_TO_MONO, flag, 441);
        EXPECT_TRUE(converter(in, {1, 160, 7, 10, 441, 3, 2, 113}) == expected);
        // A restart forgets the past.
        EXPECT_EQ(
            rk_voip_dsp_src_init(&converter.handle, from, to, 0x10000 + RK_SRC_MONO_TO_MONO, 0x10000 + flag),
            0);
        EXPECT_TRUE(converter(in, {211}) == expected);
        for (size_t n = 1; n <= 500; ++n)
            ASSERT_LE(std::max(converter.room(n).out, converter.room(n).work),
                      RK_VOIP_DSP_SRC_ROOM(static_cast<int32_t>(n)));
    });
}

TEST(RateConverterStage, RecordHoldsItsStateAfterEveryCall) {
    const Pcm in = hostile(400);
    for (const Stage ratio : {Stage{1, 2}, {2, 1}, {7, 8}, {9, 20}, {20, 9}, {3, 2}, {1, 6}}) {
        const Table& table = table_for(ratio.up, ratio.down, true);
        const int taps = table.branch_taps();
        rk_voip_dsp_src_stdata_t stage;
        EXPECT_EQ(
            rk_dsp_src_init(&stage, static_cast<int16_t>(ratio.up), static_cast<int16_t>(ratio.down), 5), 1);
        EXPECT_EQ(stage.table, table.taps);
        EXPECT_EQ(stage.phase, ratio.down - 1);
        EXPECT_EQ(stage.position, taps - 1);
        int16_t out[8];
        for (int n = 1, total = 0; n <= 400; ++n) {
            total += rk_dsp_src_proc(&stage, &in[static_cast<size_t>(n - 1)], out, 1);
            const int last = n * ratio.up - 1;  // up-sampled position reached
            ASSERT_EQ(total, last / ratio.down + 1);
            ASSERT_EQ(stage.phase, last % ratio.down);
            ASSERT_EQ(stage.position, taps - 1 - n % taps);
            for (int j = 0; j < taps; ++j) {
                const int16_t kept = j < n ? in[static_cast<size_t>(n - 1 - j)] : int16_t{0};
                ASSERT_EQ(stage.history[(stage.position + 1 + j) % taps], kept);
                ASSERT_EQ(stage.history[(stage.position + 1 + j) % taps + taps], kept);
            }
        }
        EXPECT_EQ(rk_dsp_src_proc_lc(&stage, in.data(), out, 0) + rk_dsp_src_proc(&stage, in.data(), out, -3),
                  0);
    }
}

TEST(RateConverterStage, WithoutAFilterPutsNothingOut) {
    const Pcm in = hostile(300);
    const int16_t ratios[][3] = {{1, 6, 0}, {2, 3, 0},  {3, 2, 0},     {4, 1, 0},    {1, 1, 1},
                                 {0, 0, 1}, {0, 2, 0},  {-1, 2, 1},    {1, 0, 1},    {2, 7, 1},
                                 {1, 8, 1}, {1, -1, 0}, {32767, 1, 1}, {1, 32767, 0}};
    for (const auto& [up, down, flag] : ratios) {
        rk_voip_dsp_src_stdata_t stage;
        EXPECT_EQ(rk_dsp_src_init(&stage, up, down, flag), 1);
        EXPECT_EQ(stage.table, nullptr);
        EXPECT_TRUE(up >= 1 || stage.position == -1);
        int16_t out = 99;
        EXPECT_EQ(rk_dsp_src_proc(&stage, in.data(), &out, 300), 0);
        EXPECT_EQ(out, 99);
    }
}

TEST(RateConverter, RefusesAndStaysHarmless) {
    const uint32_t pairs[][2] = {{0, 0},       {12345, 54321}, {8000, 0},
                                 {0, 16000},   {8000, 8001},   {96000, 48000},
                                 {8000, 8000}, {48000, 48000}, {0xffffffffu, 16000}};
    for (const auto& [from, to] : pairs)
        for (const uint32_t flag : {0u, 1u}) {
            SCOPED_TRACE(testing::Message() << from << " to " << to);
            RK_VOIP_DSP_SRC_RECORD(8) memory;
            rk_voip_dsp_src_inst_t* converter = &memory.instance;
            ASSERT_EQ(rk_voip_dsp_src_init(&converter, 48000, 8000, RK_SRC_STEREO_TO_MONO, flag), 0);
            EXPECT_TRUE(vqns::converter_ready(*converter));
            EXPECT_EQ(rk_voip_dsp_src_init(&converter, from, to, RK_SRC_STEREO_TO_STEREO, flag), 1);
            EXPECT_FALSE(vqns::converter_ready(*converter));
            EXPECT_EQ(vqns::converter_delay(*converter), 0);
            int16_t in[] = {1, 2, 3, 4, 5, 6}, out[6] = {9, 9, 9, 9, 9, 9};
            EXPECT_EQ(rk_voip_dsp_src_proc(&converter, in, out, 6), 0);
            for (int i = 0; i < 6; ++i) EXPECT_TRUE(in[i] == i + 1 && out[i] == 9);
        }
}

TEST(RateConverter, FoldsAndDoublesStereo) {
    const Pcm in = hostile(70001);
    const struct {
        uint32_t code;
        bool stereo_in, stereo_out;
    } cases[] = {{1000, true, false}, {1001, false, false}, {1002, true, true},           {1003, false, true},
                 {0, true, false},    {12, true, false},    {0x10000 + 1003, false, true}};
    for (const auto& c : cases)
        for (const size_t block : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 13u, 160u, 70001u})
            for (const auto& [from, to] : {std::pair{48000u, 16000u}, {16000u, 44100u}, {32000u, 48000u}}) {
                SCOPED_TRACE(testing::Message()
                             << "code " << c.code << ", blocks of " << block << ", to " << to);
                const Pcm part(in.begin(), in.begin() + (block > 1000 ? 70001 : 700));
                Pcm mono;
                for (size_t i = 0; i < part.size(); i += block) {
                    const size_t n = std::min(block, part.size() - i), frames = c.stereo_in ? n / 2 : n;
                    for (size_t f = 0; f < frames; ++f) {
                        const int16_t* x = &part[i + (c.stereo_in ? 2 * f : f)];
                        const bool average = c.stereo_in && frames == 1;
                        mono.push_back(
                            static_cast<int16_t>(average ? std::floor((x[0] + x[1]) / 2.0) : x[0]));
                    }
                }
                Pcm expected;
                for (const int16_t x : convert(mono, from, to, 1))
                    expected.insert(expected.end(), c.stereo_out ? 2 : 1, x);
                Converter converter(from, to, c.code, 1, block);
                EXPECT_EQ(converter.handle->in_layout, c.stereo_in ? RK_SRC_STEREO : RK_SRC_MONO);
                EXPECT_EQ(converter.handle->out_layout, c.stereo_out ? RK_SRC_STEREO : RK_SRC_MONO);
                EXPECT_TRUE(converter(part, {block}) == expected);
            }
}

// A sine of half scale is sent through a fresh converter. Of the output, `gain` (dB) and `delay` (input
// samples, modulo a period) describe the sine of that frequency, `rest` (dB below the tone sent) all else,
// and `heard` (likewise) all that lies below band_edge (Hz).
struct Tone {
    double gain, delay, rest, heard;
};

Tone send_tone(uint32_t from, uint32_t to, uint32_t flag, double frequency, double band_edge) {
    const double amplitude = 16384, turn = 2 * std::numbers::pi * frequency;
    Pcm in(from / 8);
    for (size_t i = 0; i < in.size(); ++i)
        in[i] = static_cast<int16_t>(std::lround(amplitude * std::sin(turn * static_cast<double>(i) / from)));
    Converter converter(from, to, RK_SRC_MONO_TO_MONO, flag, in.size());
    const Pcm out = converter(in, {in.size()});
    const int start = static_cast<int>(out.size()) / 5, length = static_cast<int>(out.size()) - start;
    double cc = 0, ss = 0, cs = 0, yc = 0, ys = 0, yy = 0;
    std::vector<double> windowed;
    for (int i = start; i < start + length; ++i) {
        const double c = std::cos(turn * i / to), s = std::sin(turn * i / to);
        const double y = out[static_cast<size_t>(i)] + 0.5;  // truncation lowers every sample by half a step
        cc += c * c, ss += s * s, cs += c * s, yc += y * c, ys += y * s, yy += y * y;
        windowed.push_back(y * (1 - std::cos(2 * std::numbers::pi * (i - start) / length)));
    }
    const double det = cc * ss - cs * cs, a = (yc * ss - ys * cs) / det, b = (ys * cc - yc * cs) / det;
    const double sent = amplitude * amplitude / 2, rest = std::max(yy - a * yc - b * ys, 1e-9) / length;
    // Every bin below the edge, each by a rotating phasor; a Hann window lets power through at 3/2.
    double heard = 1e-9;
    for (int bin = 0; bin * double(to) / length < band_edge; ++bin) {
        const std::complex<double> step = std::polar(1.0, -2 * std::numbers::pi * bin / length);
        std::complex<double> phasor = 1, sum = 0;
        for (const double y : windowed) sum += y * phasor, phasor *= step;
        heard += 2 * std::norm(sum) / length / length / 1.5;
    }
    return {20 * std::log10(std::hypot(a, b) / amplitude), std::atan2(-a, b) / turn * from,
            10 * std::log10(rest / sent), 10 * std::log10(heard / sent)};
}

TEST(RateConverter, ReachesItsQualityOnEveryRoute) {
    for_each_route([](uint32_t from, uint32_t to, uint32_t flag) {
        if (flag > 1) return;
        const double pass = flag == 1 ? 0.65 : 0.8;
        double rate = from, band = std::min(from, to) / 2.0;  // some cascades dip below both rates
        bool irregular = false, only_down = true;
        for (const Stage& stage : cascade(from, to, flag)) {
            rate = rate * stage.up / stage.down;
            band = std::min(band, rate / 2);
            irregular = irregular || (flag == 0 && stage.up == 1 && stage.down == 3);
            only_down = only_down && stage.up == 1;
        }
        double gain = 0, rest = -200, alias = -200;
        for (const double x : {0.05, 0.2, 0.4, 0.6, 0.8, 0.9, 1.0}) {
            const Tone tone = send_tone(from, to, flag, x * pass * band, 0);
            gain = std::max(gain, std::fabs(tone.gain));
            rest = std::max(rest, tone.rest);
        }
        for (double f = (2 - pass) * to / 2; f < from / 2.0; f += 0.15 * to)
            alias = std::max(alias, send_tone(from, to, flag, f, pass * band).heard);
        RK_VOIP_DSP_SRC_RECORD(1) memory;
        rk_voip_dsp_src_inst_t* converter = &memory.instance;
        rk_voip_dsp_src_init(&converter, from, to, RK_SRC_MONO_TO_MONO, flag);
        const Tone low = send_tone(from, to, flag, 0.02 * band, 0);
        EXPECT_NEAR(low.delay, vqns::converter_delay(*converter), 0.02);
        EXPECT_LE(rest, only_down ? -85 : irregular ? -76 : flag == 1 ? -53 : -64);
        if (irregular) return;  // its 1-by-3 filter passes no band evenly
        EXPECT_LE(gain, flag == 1 ? 0.042 : 0.012);
        EXPECT_LE(alias, flag == 1 ? -61 : -64);
    });
}

TEST(ChannelLayout, GivesTheKnownAnswers) {
    const int16_t in[] = {10, 20, -3, 4, 7, 7, 8, 1, -1, 0};
    const std::vector<Pcm> folded = {{}, {15}, {15, 0}, {15, 0, 7}, {10, -3, 7, 8}, {10, -3, 7, 8, -1}};
    for (int count = -1; count <= 5; ++count) {
        Pcm out(6, 99);
        rk_dsp_stereo_to_mono(out.data(), in, static_cast<int16_t>(count));
        const auto n = static_cast<size_t>(std::max(count, 0));
        EXPECT_TRUE(std::equal(folded[n].begin(), folded[n].end(), out.begin())) << count;
        EXPECT_EQ(out[n], 99) << count;
    }
    const int16_t extremes[] = {INT16_MIN, INT16_MIN, INT16_MAX, INT16_MAX, INT16_MIN, INT16_MAX};
    int16_t mean[3];
    rk_dsp_stereo_to_mono(mean, extremes, 3);
    EXPECT_TRUE(mean[0] == INT16_MIN && mean[1] == INT16_MAX && mean[2] == -1);
}

// Random counts and offsets into one pool, so that buffers overlap in every way, against one element at a
// time in ascending order.
TEST(ChannelLayout, MovesElementByElementWhereBuffersOverlap) {
    std::mt19937 random(11);
    const auto below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
    for (int round = 0; round < 20000; ++round) {
        const int function = round % 4, count = below(60) - 3;
        const int a = function == 1 ? 200 : below(80), b = below(80), c = below(80);
        Pcm pool(400), model;
        for (int16_t& x : pool) x = static_cast<int16_t>(random());
        model = pool;
        int16_t* const p = pool.data();
        volatile int16_t* const m = model.data();
        const int16_t n = static_cast<int16_t>(count);
        if (function == 0) rk_dsp_stereo_to_mono(p + a, p + b, n);
        if (function == 1) rk_dsp_mono_to_stereo(p + a, p + b, n);
        if (function == 2) rk_dsp_stereo_split(p + a, p + c, p + b, n);
        if (function == 3) rk_dsp_stereo_mux(p + a, p + b, p + c, n);
        for (int i = 0; i < count; ++i) {
            const int16_t left = m[b + (function % 2 ? i : 2 * i)];
            if (function == 0)
                m[a + i] = i < count / 4 * 4 ? left : static_cast<int16_t>((left + m[b + 2 * i + 1]) >> 1);
            if (function == 2) m[a + i] = left;
            if (function == 2) m[c + i] = m[b + 2 * i + 1];
            if (function % 2) m[a + 2 * i] = left;
            if (function % 2) m[a + 2 * i + 1] = m[(function == 1 ? b : c) + i];
        }
        ASSERT_TRUE(pool == model) << "function " << function << " count " << count << " at " << a << " " << b
                                   << " " << c;
    }
}

}  // namespace
