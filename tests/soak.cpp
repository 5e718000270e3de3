/* soak [MINUTES]: audio without end through one instance at each kernel level, an hour without an argument.
 * Speech-like bursts, noise, full scale and silence in turns. Ends with 1 at the first state that is not
 * finite or count that is not exact. Too slow for the test suite:
 *
 *     cmake --build --preset release --target soak && build/release/tests/soak
 */
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>

#include "kernel_table.h"
#include "vq_ns_pipeline.h"

namespace {

void fill(int16_t* piece, int64_t index, std::mt19937& random) {
    const int64_t turn = index / 1000 % 5;
    for (int i = 0; i < 480; ++i) {
        const double t = static_cast<double>(index * 480 + i) / 48000;
        const double noise = static_cast<double>(random()) / 2147483648.0 - 1;
        const double voice = std::sin(2 * M_PI * 3 * t) * std::sin(2 * M_PI * (150 + 30 * std::sin(t)) * t);
        const double x = turn == 0   ? 12000 * voice + 500 * noise
                         : turn == 1 ? 3000 * noise
                         : turn == 2 ? 0
                         : turn == 3 ? (noise > 0 ? 32767 : -32768)
                                     : 20 * voice;
        piece[i] = static_cast<int16_t>(std::lround(x));
    }
}

bool soak_level(int32_t level, int64_t pieces) {
    auto ns = std::make_unique<vq_ns_data>();
    if (vq_ns_init(ns.get(), 48000, 16000) != 0) return false;
    fill_kernel_table(&ns->kernels, level);
    std::mt19937 random(1);
    bool holds = true;
    for (int64_t index = 0; index < pieces && holds; ++index) {
        int16_t in[480], out[200];
        fill(in, index, random);
        holds = vq_ns_process_tenms(ns.get(), in, out, 480) == (index < 5 ? 0 : 160);
        for (const auto& state : ns->network.recurrent_state) {
            for (const float v : state) holds = holds && std::isfinite(v);
        }
        if (!holds)
            std::fprintf(stderr, "level %d fails at %.2f s\n", level, static_cast<double>(index) / 100);
    }
    rk_dsp_dgc_kwenh_deinit(&ns->gain_control);
    return holds;
}

}  // namespace

int main(int argc, char** argv) {
    const int64_t minutes = argc > 1 ? std::atoll(argv[1]) : 60;
    auto probe = std::make_unique<vq_ns_data>();
    vq_ns_reset(probe.get(), 16000, 16000);
    for (int32_t level = 0; level <= probe->kernel_level; ++level) {
        if (!soak_level(level, minutes * 6000)) return 1;
        std::printf("level %d: %lld minutes, state finite, counts exact\n", level,
                    static_cast<long long>(minutes));
    }
    return 0;
}
