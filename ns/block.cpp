#include <algorithm>
#include <cstring>

#include "instance.h"
#include "vq_ns_pipeline.h"

namespace {

constexpr float kLongestBlockMs = 100.0f;

void move(int16_t* to, const int16_t* from, int32_t count) {
    if (count > 0) std::memmove(to, from, static_cast<size_t>(count) * sizeof *to);
}

/* Returns the samples put out by a converter that is fed `in` in chunks. */
int32_t convert(rk_voip_dsp_src_inst_t** converter, const int16_t* in, int16_t* out, int32_t count,
                int32_t chunk) {
    int32_t written = 0;
    for (int32_t read = 0; read < count; read += chunk) {
        /* The converter changes its input for stereo alone. */
        written += static_cast<int16_t>(rk_voip_dsp_src_proc(converter, const_cast<int16_t*>(in) + read,
                                                             out + written, std::min(chunk, count - read)));
    }
    return written;
}

/* The block at 16 kHz, in input_16k; returns its length. The chunk is as many samples as the block lasts
 * milliseconds: a block shorter than one is dropped. */
int32_t take_input(vq_ns_data* ns, const int16_t* input, int32_t count) {
    if (ns->input_converter_on == 0) {
        move(ns->input_16k, input, count);
        return count;
    }
    if (ns->call_duration < 1) return 0;
    return convert(&ns->input_converter_pointer, input, ns->input_16k, count, ns->call_duration);
}

/* Cuts carry and block into hops; returns the enhanced samples, in output_16k. */
int32_t run_hops(vq_ns_data* ns, int32_t available) {
    const int16_t* in = ns->input_16k;
    int32_t produced = 0;
    while (ns->carry_count + available >= VQ_NS_HOP) {
        const int32_t fresh = VQ_NS_HOP - ns->carry_count;
        move(ns->hop, ns->frame_carry, ns->carry_count);
        move(ns->hop + ns->carry_count, in, fresh);
        ns->carry_count = 0;
        in += fresh;
        available -= fresh;
        produced += vq_ns_dnn_proc(ns, ns->hop, ns->output_16k + produced, VQ_NS_HOP);
    }
    move(ns->frame_carry + ns->carry_count, in, available);
    ns->carry_count = static_cast<int16_t>(ns->carry_count + available);
    return produced;
}

int32_t convert_output(vq_ns_data* ns, int32_t produced) {
    if (ns->output_converter_on == 0) return produced;
    const int32_t converted =
        convert(&ns->output_converter_pointer, ns->output_16k, ns->input_16k, produced, VQ_NS_HOP);
    move(ns->output_16k, ns->input_16k, converted);
    return converted;
}

/* Samples due for a block: the rate ratio is kept exact by carrying the fraction. */
int32_t expected_count(vq_ns_data* ns, float duration_ms, int32_t count) {
    if (ns->output_rate == ns->input_rate) return count;
    const float exact = duration_ms * ns->output_per_ms + ns->output_fraction;
    const int32_t whole = static_cast<int32_t>(exact);
    ns->output_fraction = exact - static_cast<float>(whole);
    return whole;
}

/* Hands out `expected` samples, pending ones first, or none. */
int32_t deliver(vq_ns_data* ns, int16_t* output, int32_t produced, int32_t expected) {
    int32_t used = 0, delivered = 0;
    if (expected <= ns->pending_count + produced) {
        if (ns->output_started == 0) {
            /* The first delivery is let pass: a block of slack stays in hand from then on. */
            ns->output_started = 1;
        } else {
            const int32_t old = std::min<int32_t>(ns->pending_count, expected);
            move(output, ns->pending, old);
            ns->pending_count = static_cast<int16_t>(ns->pending_count - old);
            move(ns->pending, ns->pending + old, ns->pending_count);
            used = expected - old;
            move(output + old, ns->output_16k, used);
            delivered = expected;
        }
    }
    const int32_t left = produced - used;
    /* Where blocks are not whole milliseconds, 10 ms from 11025 and 22050 Hz among them, single precision
     * drifts by up to some samples an hour. Where too few are handed out, the oldest ones make room after
     * weeks. */
    const int32_t surplus = std::max<int32_t>(0, ns->pending_count + left - VQ_NS_PENDING);
    if (surplus > 0) move(ns->pending, ns->pending + surplus, ns->pending_count - surplus);
    ns->pending_count = static_cast<int16_t>(ns->pending_count - surplus);
    move(ns->pending + ns->pending_count, ns->output_16k + used, left);
    ns->pending_count = static_cast<int16_t>(ns->pending_count + left);
    return delivered;
}

}  // namespace

int32_t vq_ns_proc(vq_ns_data* ns, const int16_t* input, int16_t* output, int32_t count) {
    if (!can_process(*ns)) return -1;
    if (count < 1) return 0;
    const float duration_ms = static_cast<float>(count) * 1000.0f / static_cast<float>(ns->input_rate);
    ns->call_duration = static_cast<int16_t>(static_cast<int32_t>(duration_ms));
    if (duration_ms > kLongestBlockMs) return -1;
    const int32_t converted = take_input(ns, input, count);
    const int32_t produced = convert_output(ns, run_hops(ns, converted));
    return deliver(ns, output, produced, expected_count(ns, duration_ms, count));
}
