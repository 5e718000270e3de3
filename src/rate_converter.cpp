#include "rate_converter.h"

#include <algorithm>

#include "channel_layout.h"

namespace {

static_assert(sizeof(rk_voip_dsp_src_inst_t) % alignof(int16_t) == 0, "the work buffer follows the record");

int16_t* work_buffer(rk_voip_dsp_src_inst_t* converter) {
    return reinterpret_cast<int16_t*>(reinterpret_cast<unsigned char*>(converter) + sizeof *converter);
}

// 0 for a rate outside the eight; no route has that index in its code.
int32_t rate_index(uint32_t rate) {
    for (int32_t i = 1; i < 10; ++i)
        if (rk_voip_dsp_mxr_smpr[i] == rate) return i;
    return 0;
}

const int16_t* find_route(int32_t code) {
    for (const auto& route : rk_voip_dsp_src_info)
        // An unused row is no answer to the code 0 of two unknown rates.
        if (route[0] == code && route[1] > 0) return route;
    return nullptr;
}

// Folds interleaved samples in place and returns the number of frames. The rules are those of
// rk_dsp_stereo_to_mono called with the interleaved count, which makes the frames that are used the
// left channel, except that a lone frame is averaged; the block's end is not read past.
int32_t fold(int16_t* samples, int32_t count) {
    const int32_t frames = count / 2;
    if (frames == 1) rk_dsp_stereo_to_mono(samples, samples, 1);
    for (int32_t i = 1; i < frames; ++i) samples[i] = samples[2 * i];
    return frames;
}

void unfold(int16_t* dst, const int16_t* src, int32_t count) {
    for (int32_t done = 0; done < count; done += INT16_MAX)
        rk_dsp_mono_to_stereo(dst + 2 * done, src + done,
                              static_cast<int16_t>(std::min<int32_t>(count - done, INT16_MAX)));
}

}  // namespace

int32_t rk_voip_dsp_src_init(rk_voip_dsp_src_inst_t** handle, uint32_t in_rate, uint32_t out_rate,
                             uint32_t layout, uint32_t low_complexity) {
    rk_voip_dsp_src_inst_t* const converter = *handle;
    converter->routine = nullptr;

    const int16_t flag = static_cast<int16_t>(low_complexity);
    const int32_t code = rate_index(in_rate) * 10 + rate_index(out_rate);
    const int16_t* route = flag == 1 ? find_route(code + 2000) : nullptr;
    if (route == nullptr) route = find_route(code);
    if (route == nullptr) return 1;

    for (int32_t s = 0; s < RK_SRC_STAGES; ++s)
        rk_dsp_src_init(&converter->stage[s], route[1 + 2 * s], route[2 + 2 * s], flag);
    const uint16_t sides = static_cast<uint16_t>(layout);
    const bool mono_in = sides == RK_SRC_MONO_TO_MONO || sides == RK_SRC_MONO_TO_STEREO;
    const bool stereo_out = sides == RK_SRC_STEREO_TO_STEREO || sides == RK_SRC_MONO_TO_STEREO;
    converter->in_layout = mono_in ? RK_SRC_MONO : RK_SRC_STEREO;
    converter->out_layout = stereo_out ? RK_SRC_STEREO : RK_SRC_MONO;
    converter->routine = flag == 0 ? rk_dsp_src_proc : rk_dsp_src_proc_lc;
    return 0;
}

int32_t rk_voip_dsp_src_proc(rk_voip_dsp_src_inst_t** handle, int16_t* in, int16_t* out, int32_t count) {
    rk_voip_dsp_src_inst_t* const converter = *handle;
    if (count < 1 || converter->routine == nullptr) return 0;
    if (converter->in_layout == RK_SRC_STEREO) count = fold(in, count);

    int16_t* const work = work_buffer(converter);
    rk_voip_dsp_src_stdata_t* const stage = converter->stage;
    int32_t produced = converter->routine(&stage[0], in, out, count);
    if (stage[1].up > 0) {
        produced = converter->routine(&stage[1], out, work, produced);
        if (stage[2].up > 0)
            produced = converter->routine(&stage[2], work, out, produced);
        else
            std::copy_n(work, produced, out);
    }
    if (converter->out_layout == RK_SRC_MONO) return produced;

    std::copy_n(out, produced, work);
    unfold(out, work, produced);
    return 2 * produced;
}
