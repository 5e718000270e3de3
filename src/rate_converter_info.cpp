#include "rate_converter_info.h"

#include <algorithm>

namespace vqns {

bool converter_ready(const rk_voip_dsp_src_inst_t& converter) {
    return converter.routine != nullptr;
}

double converter_delay(const rk_voip_dsp_src_inst_t& converter) {
    if (!converter_ready(converter)) return 0;
    double delay = 0;
    double step = 1;  // of the stage's input, in samples of the converter's input
    for (const rk_voip_dsp_src_stdata_t& stage : converter.stage) {
        if (stage.up < 1) break;
        const int32_t centre = stage.up * stage.taps / 2;
        delay += step * centre / stage.up;
        step = step * stage.down / stage.up;
    }
    return delay;
}

ConverterRoom converter_room(const rk_voip_dsp_src_inst_t& converter, int32_t count) {
    if (!converter_ready(converter) || count < 1) return {0, 0};
    int64_t produced = converter.in_layout == RK_SRC_STEREO ? count / 2 : count;
    int64_t after[RK_SRC_STAGES] = {};
    for (int32_t s = 0; s < RK_SRC_STAGES && converter.stage[s].up > 0; ++s) {
        const rk_voip_dsp_src_stdata_t& stage = converter.stage[s];
        produced = (produced * stage.up + stage.down - 1) / stage.down;
        after[s] = produced;
    }
    const bool stereo = converter.out_layout == RK_SRC_STEREO;
    return {static_cast<int32_t>(std::max(after[0], stereo ? 2 * produced : produced)),
            static_cast<int32_t>(stereo ? std::max(after[1], produced) : after[1])};
}

}  // namespace vqns
