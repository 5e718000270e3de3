/* Any hops of samples, at every kernel level: output and recurrent state stay finite, so that nothing that is
 * not a number can take up residence. */
#include <cmath>
#include <cstdlib>
#include <memory>

#include "bytes.h"
#include "kernel_table.h"
#include "vq_ns_pipeline.h"

namespace {

/* A hop from three bytes, or from 320 of them. */
std::vector<int16_t> next_hop(Bytes& in) {
    const int kind = in.byte() % 5;
    if (kind == 0) return in.pcm(160);
    const auto amplitude = static_cast<int16_t>(in.byte() << 8 | in.byte());
    uint32_t random = static_cast<uint32_t>(amplitude) + 1;
    std::vector<int16_t> hop(160);
    for (size_t i = 0; i < hop.size(); ++i) {
        random = random * 1664525u + 1013904223u;
        const int32_t noise = static_cast<int32_t>(random >> 16) - 32768;
        hop[i] = kind == 1   ? amplitude
                 : kind == 2 ? static_cast<int16_t>(i % 2 == 0 ? amplitude : -(amplitude + 1))
                 : kind == 3 ? static_cast<int16_t>(i == 80 ? amplitude : 0)
                             : static_cast<int16_t>(noise * amplitude / 32768);
    }
    return hop;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Bytes in{data, size};
    auto ns = std::make_unique<vq_ns_data>();
    vq_ns_reset(ns.get(), 16000, 16000);
    const int32_t level = in.byte() % 3;
    fill_kernel_table(&ns->kernels, level <= ns->kernel_level ? level : ns->kernel_level);
    for (int hop = 0; hop < 60 && in.left > 0; ++hop) {
        const std::vector<int16_t> pcm = next_hop(in);
        float out[160] = {};
        vq_ns_dpcrn_proc(ns.get(), pcm.data(), out, 160);
        for (const float y : out) {
            if (!std::isfinite(y)) std::abort();
        }
        for (const auto& state : ns->network.recurrent_state) {
            for (const float v : state) {
                if (!(std::fabs(v) <= 1.00001f)) std::abort();
            }
        }
    }
    return 0;
}
