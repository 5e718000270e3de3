#include <memory>
#include <string>

#include "bench.h"
#include "gain_control.h"
#include "gmm_vad.h"
#include "rate_converter.h"
#include "signals.h"

namespace {

/* Runs body(10 ms of the signal) round and round a second of it. */
template <typename Body>
void over_blocks(benchmark::State& state, int32_t rate, const Body& body) {
    const std::vector<int16_t> in = voice(rate);
    const size_t block = static_cast<size_t>(rate / 100);
    size_t at = 0;
    for (auto _ : state) {
        body(in.data() + at);
        benchmark::ClobberMemory();
        at = at + 2 * block <= in.size() ? at + block : 0;
    }
}

void gain_control(benchmark::State& state, int32_t rate) {
    const auto record = std::make_unique<rk_voip_dsp_dgc_kwenh_data_t>();
    const int32_t detector[4] = {2, rate, 0, 0};
    rk_dsp_dgc_kwenh_init(record.get(), 31000, rate, 8, detector);
    over_blocks(state, rate, [&](const int16_t* block) {
        benchmark::DoNotOptimize(
            rk_dsp_dgc_kwenh_process(record.get(), block, static_cast<int16_t>(rate / 100)));
    });
    rk_dsp_dgc_kwenh_deinit(record.get());
}

void detector(benchmark::State& state, int32_t rate) {
    VadInstT* const vad = TarvikGmmVad_Create();
    TarvikGmmVad_Init(vad);
    over_blocks(state, rate, [&](const int16_t* block) {
        benchmark::DoNotOptimize(TarvikGmmVad_Process(vad, rate, block, static_cast<size_t>(rate / 100)));
    });
    TarvikGmmVad_Free(vad);
}

void converter(benchmark::State& state, int32_t from, int32_t to, bool short_filters) {
    RK_VOIP_DSP_SRC_RECORD(RK_VOIP_DSP_SRC_ROOM(480)) memory;
    rk_voip_dsp_src_inst_t* instance = &memory.instance;
    rk_voip_dsp_src_init(&instance, static_cast<uint32_t>(from), static_cast<uint32_t>(to),
                         RK_SRC_MONO_TO_MONO, short_filters ? 1 : 0);
    std::vector<int16_t> in(static_cast<size_t>(from / 100)), out(RK_VOIP_DSP_SRC_ROOM(480));
    over_blocks(state, from, [&](const int16_t* block) {
        std::copy_n(block, in.size(), in.begin());
        rk_voip_dsp_src_proc(&instance, in.data(), out.data(), static_cast<int32_t>(in.size()));
    });
}

void add(const std::string& name, const std::function<void(benchmark::State&)>& run) {
    shortest(benchmark::RegisterBenchmark(name.c_str(), run));
}

}  // namespace

void register_voice_benchmarks() {
    for (const int32_t rate : {8000, 16000}) {
        add("gain_control/" + std::to_string(rate), [=](auto& state) { gain_control(state, rate); });
    }
    for (const int32_t rate : {8000, 16000, 32000, 48000}) {
        add("detector/" + std::to_string(rate), [=](auto& state) { detector(state, rate); });
    }
    for (const int32_t from : kRates) {
        for (const int32_t to : kRates) {
            if (from == to) continue;
            const std::string route = "converter/" + std::to_string(from) + "_to_" + std::to_string(to);
            add(route + "/short", [=](auto& state) { converter(state, from, to, true); });
            add(route + "/long", [=](auto& state) { converter(state, from, to, false); });
        }
    }
}
