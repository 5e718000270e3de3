#include <algorithm>
#include <cstdio>
#include <cstring>

#include "gain_apply.h"
#include "instance.h"
#include "vq_ns.h"
#include "vq_ns_pipeline.h"

namespace {

enum { kTargetLevel = 31000, kMostGain = 8, kDetectorMode = 2 };

int32_t piece_failed() {
    std::puts("Data Unable to Process by VQNS");
    return -1;
}

void copy(int16_t* to, const int16_t* from, int32_t count) {
    std::memcpy(to, from, static_cast<size_t>(count) * sizeof *to);
}

/* Whether the queue can take all that `count` more samples may give; where rates differ, each piece may give
 * one sample beyond its share. */
bool queue_has_room(const vq_ns_data& ns, int32_t count, int32_t length) {
    const int64_t pieces = (int64_t{ns.remainder_count} + count) / length;
    const int64_t most =
        ns.input_rate == ns.output_rate ? length : int64_t{length} * ns.output_rate / ns.input_rate + 1;
    return ns.queue_count + pieces * most <= VQ_NS_QUEUE;
}

/* Runs one piece and queues what comes out; false when it failed. */
bool queue_piece(vq_ns_data* ns, const int16_t* piece, int32_t length) {
    int16_t out[VQ_NS_PIECE + 32];
    const int32_t r = vq_ns_process_tenms(ns, piece, out, length);
    if (r < 0) return false;
    copy(ns->queue + ns->queue_count, out, r);
    ns->queue_count = static_cast<int16_t>(ns->queue_count + r);
    return true;
}

}  // namespace

int32_t vq_ns_init(vq_ns_data* ns, int32_t input_rate, int32_t output_rate) {
    if (ns == nullptr) return -1;
    vq_ns_reset(ns, input_rate, output_rate);
    if (!can_process(*ns)) return -1;
    int32_t detector[4] = {kDetectorMode, output_rate, 0, 0};
    if (rk_dsp_dgc_kwenh_init(&ns->gain_control, kTargetLevel, output_rate, kMostGain, detector) != 0) {
        std::puts("Unable to initialize DGC ");
        return -1;
    }
    ns->gain_control_pointer = &ns->gain_control;
    return 0;
}

int32_t vq_ns_process_tenms(vq_ns_data* ns, const int16_t* input, int16_t* output, int32_t count) {
    if (ns == nullptr || input == nullptr || output == nullptr || ns->gain_control_pointer == nullptr)
        return -1;
    const int32_t r = vq_ns_proc(ns, input, output, count);
    if (r < 1) return r;
    const int32_t gain = rk_dsp_dgc_kwenh_process(ns->gain_control_pointer, output, static_cast<int16_t>(r));
    rk_dsp_dgc_kwenh_apply(output, r, gain);
    return r;
}

int32_t vq_ns_process(vq_ns_data* ns, const int16_t* input, int16_t* output, int32_t count) {
    if (count < 1) return count;
    if (ns == nullptr || input == nullptr || output == nullptr || ns->input_rate < 100) return -1;
    if (!can_process(*ns)) return piece_failed();
    const int32_t length = ns->input_rate / 100;
    if (!queue_has_room(*ns, count, length)) return piece_failed();
    int32_t left = count;

    if (ns->remainder_count > 0 && ns->remainder_count + left >= length) {
        const int32_t fresh = length - ns->remainder_count;
        copy(ns->remainder + ns->remainder_count, input, fresh);
        ns->remainder_count = 0;
        if (!queue_piece(ns, ns->remainder, length)) return piece_failed();
        input += fresh;
        left -= fresh;
    }
    if (ns->remainder_count == 0) {
        for (; left >= length; input += length, left -= length) {
            if (!queue_piece(ns, input, length)) return piece_failed();
        }
    }
    copy(ns->remainder + ns->remainder_count, input, left);
    ns->remainder_count = static_cast<int16_t>(ns->remainder_count + left);

    if (ns->queue_count < count) return 0;
    copy(output, ns->queue, count);
    ns->queue_count = static_cast<int16_t>(ns->queue_count - count);
    std::memmove(ns->queue, ns->queue + count, static_cast<size_t>(ns->queue_count) * sizeof *ns->queue);
    return count;
}

int32_t vq_ns_sprocess(vq_ns_data* ns, const int16_t* low_in, const int16_t* high_in, int16_t* low_out,
                       int16_t* high_out, int32_t count) {
    if (ns == nullptr || low_in == nullptr || high_in == nullptr || low_out == nullptr ||
        high_out == nullptr) {
        return -1;
    }
    if (count > VQ_NS_BANDS_MAX) return -1;
    int16_t merged[2 * VQ_NS_BANDS_MAX], processed[VQ_NS_BLOCK];
    const int16_t band = static_cast<int16_t>(std::max(count, 0));
    vq_ns_qmix(&ns->qmf, low_in, high_in, merged, band);
    const int32_t r = vq_ns_proc(ns, merged, processed, 2 * band);
    if (r < 1) return r;
    vq_ns_qsplit(&ns->qmf, processed, low_out, high_out, static_cast<int16_t>(r & ~1));
    return r >> 1;
}

int32_t vq_ns_deinit(vq_ns_data* ns) {
    return vq_ns_destry(ns);
}

int32_t vq_ns_destry(vq_ns_data*) {
    return 0;
}
