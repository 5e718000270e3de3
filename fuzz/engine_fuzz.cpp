/* Any series of calls on an instance at any rates: no byte outside the buffers, counts within bounds, a state
 * that stays finite. */
#include <cmath>
#include <cstdlib>
#include <memory>

#include "bytes.h"
#include "vq_ns_pipeline.h"

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

void run_call(vq_ns_data* ns, Bytes& in, int32_t output_rate, int32_t input_rate) {
    const int32_t most = input_rate / 10 + 2;
    const int32_t count = static_cast<int32_t>(in.word() % static_cast<uint32_t>(most + 3)) - 3;
    const std::vector<int16_t> pcm = in.pcm(static_cast<size_t>(count > 0 ? count : 0) + 1);
    const int64_t due = static_cast<int64_t>(count > 0 ? count : 0) * output_rate / input_rate + 1;
    std::vector<int16_t> out(static_cast<size_t>(due) + 1), high(out.size());
    switch (in.byte() % 4) {
        case 0:
            require(vq_ns_proc(ns, pcm.data(), out.data(), count) <= due);
            break;
        case 1:
            require(vq_ns_process_tenms(ns, pcm.data(), out.data(), count) <= due);
            break;
        case 2:
            out.resize(pcm.size());
            require(vq_ns_process(ns, pcm.data(), out.data(), count) <= (count > 0 ? count : 0));
            break;
        default:
            require(vq_ns_sprocess(ns, pcm.data(), pcm.data(), out.data(), high.data(), count) <= due);
            break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Bytes in{data, size};
    auto ns = std::make_unique<vq_ns_data>();
    const uint8_t choice = in.byte();
    const bool is_odd_rate = in.byte() % 16 == 0;
    const int32_t from = is_odd_rate ? static_cast<int32_t>(in.word()) : kRates[choice % 8];
    const int32_t to = kRates[choice / 8 % 8];
    if (vq_ns_init(ns.get(), from, to) == 0) {
        for (int call = 0; call < 40 && in.left > 0; ++call) run_call(ns.get(), in, to, from);
        for (const auto& state : ns->network.recurrent_state) {
            for (const float v : state) require(std::isfinite(v));
        }
    } else {
        const std::vector<int16_t> pcm = in.pcm(480);
        std::vector<int16_t> out(480);
        require(vq_ns_process(ns.get(), pcm.data(), out.data(), 480) == -1);
        require(vq_ns_process_tenms(ns.get(), pcm.data(), out.data(), 480) == -1);
    }
    rk_dsp_dgc_kwenh_deinit(&ns->gain_control);
    return 0;
}
