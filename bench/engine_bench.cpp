#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>

#include "bench.h"
#include "kernel_table.h"
#include "signals.h"
#include "vq_ns.h"
#include "vq_ns_pipeline.h"

namespace {

/* A frame of the network: encoder, four stages of recurrent and dense layer, decoder; bins x outputs x
 * inputs. */
constexpr double kNetworkMultiplyAdds = 127 * 32 * 20 + 63 * 48 * 192 + 31 * 64 * 144 +
                                        4 * (31 * 192 * 128 + 31 * 64 * 64) +  //
                                        31 * 64 * 144 + 63 * 48 * 192 + 127 * 32 * 20;
static_assert(kNetworkMultiplyAdds == 5450496);

struct Free {
    void operator()(vq_ns_data* ns) const {
        rk_dsp_dgc_kwenh_deinit(&ns->gain_control);
        vq_ns_deinit(ns);
        std::free(ns);
    }
};
using Instance = std::unique_ptr<vq_ns_data, Free>;

Instance make_instance(int32_t rate, int32_t level) {
    Instance ns(static_cast<vq_ns_data*>(std::aligned_alloc(64, (sizeof(vq_ns_data) + 63) / 64 * 64)));
    vq_ns_init(ns.get(), rate, rate);
    vq_ns_fft_init(&ns->fft, 512, level);
    fill_kernel_table(&ns->kernels, level);
    return ns;
}

/* At rates that the gain stage's detector refuses the engine prints a line a frame. */
class Silence {
  public:
    Silence() : kept_(dup(STDOUT_FILENO)) {
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, STDOUT_FILENO);
        close(null);
    }
    ~Silence() {
        std::fflush(stdout);
        dup2(kept_, STDOUT_FILENO);
        close(kept_);
    }

  private:
    int kept_;
};

void run_engine(benchmark::State& state, int32_t rate, int32_t level) {
    const Instance ns = make_instance(rate, level);
    const std::vector<int16_t> in = voice(rate);
    const size_t block = static_cast<size_t>(rate / 100);
    std::vector<int16_t> out(block + 8);
    const Silence silence;
    size_t at = 0;
    const auto step = [&] {
        vq_ns_process(ns.get(), in.data() + at, out.data(), static_cast<int32_t>(block));
        at = at + 2 * block <= in.size() ? at + block : 0;
    };
    for (int i = 0; i < 10; ++i) step();
    for (auto _ : state) step();
    state.counters["multiply_adds"] = kNetworkMultiplyAdds;
}

/* A 10 ms block of a running stream, and the map that the encoder made of its frame. */
struct Moment {
    int16_t hop[VQ_NS_HOP];
    float map[VQ_NS_MAP2];
};

/* Stages leave unchanged what they are given. */
struct Stage {
    const char* name;
    void (*run)(vq_ns_data*, const Moment&);
};

float scratch[2048];

const Stage kStages[] = {
    {"forward_transform",
     [](vq_ns_data* ns, const Moment&) {
         vq_ns_fft_process(&ns->fft, ns->windowed_frame, true, ns->spectrum_re, ns->spectrum_im);
     }},
    {"encoder",
     [](vq_ns_data* ns, const Moment&) {
         vq_ns_dpcrn_encoder(ns, ns->frame_work, ns->network.output, VQ_NS_BINS);
         ns->network.warm_up = 3;
     }},
    {"separator", [](vq_ns_data* ns, const Moment& moment) { vq_ns_dpcrn_sep(ns, moment.map, scratch); }},
    {"decoder",
     [](vq_ns_data* ns, const Moment&) {
         float out[520];
         std::copy_n(ns->network.output, VQ_NS_MAP2, scratch);
         vq_ns_dpcrn_decoder(ns, scratch, out, VQ_NS_MAP_ROWS);
     }},
    {"inverse_transform",
     [](vq_ns_data* ns, const Moment&) {
         std::copy_n(ns->windowed_frame, 512, scratch);
         vq_ns_ifft_process(&ns->fft, scratch, false, ns->spectrum_re, ns->spectrum_im);
     }},
    {"gain_stage",
     [](vq_ns_data* ns, const Moment& moment) {
         int16_t block[VQ_NS_HOP];
         std::copy_n(moment.hop, VQ_NS_HOP, block);
         rk_dsp_dgc_kwenh_api_process(&ns->gain_control, block, VQ_NS_HOP, 1);
     }},
};

void run_stage(benchmark::State& state, const Stage& stage, int32_t level) {
    const Instance ns = make_instance(16000, level);
    const std::vector<int16_t> in = voice(16000);
    std::vector<Moment> moments;
    for (size_t i = 0; i < 60; ++i) {
        int16_t out[VQ_NS_HOP];
        Moment moment;
        std::copy_n(&in[i * VQ_NS_HOP], VQ_NS_HOP, moment.hop);
        vq_ns_process(ns.get(), moment.hop, out, VQ_NS_HOP);
        std::copy_n(ns->network.output_skip, VQ_NS_MAP2, moment.map);
        if (i >= 20) moments.push_back(moment);
    }
    size_t i = 0;
    for (auto _ : state) {
        stage.run(ns.get(), moments[i]);
        benchmark::ClobberMemory();
        i = (i + 1) % moments.size();
    }
}

}  // namespace

void register_engine_benchmarks() {
    benchmark::AddCustomContext("instance_bytes", std::to_string(vq_ns_data_size()));
    for (const int32_t level : levels()) {
        const std::string suffix = std::string("/") + level_name(level);
        for (const int32_t rate : kRates) {
            shortest(benchmark::RegisterBenchmark(
                ("process/" + std::to_string(rate) + suffix).c_str(),
                [=](benchmark::State& state) { run_engine(state, rate, level); }));
        }
        for (const Stage& stage : kStages) {
            shortest(benchmark::RegisterBenchmark(
                ("stage/" + (stage.name + suffix)).c_str(),
                [=](benchmark::State& state) { run_stage(state, stage, level); }));
        }
    }
}
