#include <functional>
#include <memory>
#include <string>

#include "bench.h"
#include "kernel_table.h"
#include "vq_ns_model.h"
#include "vq_ns_network.h"

namespace {

/* The maps of a frame, filled with what a frame holds: values about one. */
struct Maps {
    alignas(64) float a[3 * VQ_NS_MAP0], b[3 * VQ_NS_MAP0];
    alignas(64) float state[VQ_NS_MAP2];
    alignas(64) int16_t pcm[512];
};

struct Case {
    const char* name;
    double multiply_adds; /* an iteration; 0 where the kernel is no product */
    std::function<void(const vq_ns_kernel_table&, Maps&)> run;
};

std::vector<Case> cases() {
    const float* const* e = encoder_weights;
    const float* const* s = sep_weights;
    const float* const* d = decoder_weights;
    const auto recurrent = [s](int stage, int16_t stride) {
        const float* const* w = s + 7 * stage;
        return [w, stride](const vq_ns_kernel_table& k, Maps& m) {
            k.l4(m.a, m.b, m.state, w[0], w[1], w[2], 31, 64, stride);
        };
    };
    return {
        {"l1", 127 * 32 * 20, [e](const auto& k, Maps& m) { k.l1(m.a, e[0], e[1], m.b, 2, 32, 257, 127); }},
        {"l2", 63 * 48 * 192, [e](const auto& k, Maps& m) { k.l2(m.a, e[5], e[6], m.b, 32, 48, 127, 63); }},
        {"l3", 31 * 64 * 144, [e](const auto& k, Maps& m) { k.l3(m.a, e[10], e[11], m.b, 48, 64, 63, 31); }},
        {"l4_along_frequency", 31 * 64 * 6 * 64, recurrent(0, 0)},
        {"l4_along_time", 31 * 64 * 6 * 64, recurrent(1, 64)},
        {"l5", 31 * 64 * 64, [s](const auto& k, Maps& m) { k.l5(m.a, s[3], s[4], m.b, 31, 64); }},
        {"l6", 31 * 48 * 192, [d](const auto& k, Maps& m) { k.l6(m.a, d[0], d[1], m.b, 64, 48, 31, 63); }},
        {"l7", 63 * 32 * 288, [d](const auto& k, Maps& m) { k.l7(m.a, d[5], d[6], m.b, 48, 32, 63, 127); }},
        {"l8", 127 * 2 * 320, [d](const auto& k, Maps& m) { k.l8(m.a, d[10], d[11], m.b, 32, 2, 127, 257); }},
        {"l9", 0, [](const auto& k, Maps& m) { k.l9(m.a, m.a + 264, m.a + 528, m.b, 257); }},
        {"nm0_528", 0, [](const auto& k, Maps& m) { k.nm0(m.a, ln0, ln0 + 528, m.b, 528, 514); }},
        {"nm0_1984", 0, [s](const auto& k, Maps& m) { k.nm0(m.a, s[5], s[6], m.b, 1984, 1984); }},
        {"nm1_127x32", 0, [e](const auto& k, Maps& m) { k.nm1(m.b, e[2], e[3], e[4], 127, 32); }},
        {"nm1_63x48", 0, [e](const auto& k, Maps& m) { k.nm1(m.b, e[7], e[8], e[9], 63, 48); }},
        {"nm1_31x64", 0, [e](const auto& k, Maps& m) { k.nm1(m.b, e[12], e[13], e[14], 31, 64); }},
        {"mclear_4064", 0, [](const auto& k, Maps& m) { k.mclear(m.b, VQ_NS_MAP0); }},
        {"cpy_4064", 0, [](const auto& k, Maps& m) { k.cpy(m.a, m.b, VQ_NS_MAP0); }},
        {"cpy_dpc_514", 0, [](const auto& k, Maps& m) { k.cpy_dpc(m.a, m.b, 514); }},
        {"add_4064", 0, [](const auto& k, Maps& m) { k.add(m.b, m.a, VQ_NS_MAP0); }},
        {"smac_512", 0, [](const auto& k, Maps& m) { k.smac(m.b, -1.0f, 512); }},
        {"smul_480", 0, [](const auto& k, Maps& m) { k.smul(m.b, m.b + 512, 480); }},
        {"s2f_160", 0, [](const auto& k, Maps& m) { k.s2f(m.pcm, m.b, 160); }},
        {"concat_528", 0, [](const auto& k, Maps& m) { k.concat(m.b, m.a, m.a + 264, 528); }},
    };
}

}  // namespace

void register_kernel_benchmarks() {
    for (const int32_t level : levels()) {
        for (const Case& c : cases()) {
            shortest(benchmark::RegisterBenchmark(
                (std::string("kernel/") + c.name + "/" + level_name(level)).c_str(),
                [=](benchmark::State& state) {
                    vq_ns_kernel_table kernels;
                    fill_kernel_table(&kernels, level);
                    const auto maps = std::make_unique<Maps>();
                    for (int i = 0; i < 3 * VQ_NS_MAP0; ++i) {
                        maps->a[i] = static_cast<float>(i * 7 % 19 - 9) * 0.1f;
                        maps->b[i] = i % 2 == 0 ? 1.0f : -1.0f;
                    }
                    for (auto _ : state) {
                        c.run(kernels, *maps);
                        benchmark::ClobberMemory();
                    }
                    if (c.multiply_adds > 0) state.counters["multiply_adds"] = c.multiply_adds;
                }));
        }
    }
}
