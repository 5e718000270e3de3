#include <cmath>

#include "instance.h"
#include "rate_converter_info.h"

namespace {

/* What 16 kHz samples must have come in before a block is handed out: three hops fill the frame, two more the
 * look-ahead of the mask, and the block of the fifth hop stays in hand. */
enum { kSamplesBeforeOutput = 5 * VQ_NS_HOP };

double converter_seconds(int16_t is_on, const rk_voip_dsp_src_inst_t& converter, int32_t in_rate) {
    return is_on != 0 ? vqns::converter_delay(converter) / in_rate : 0.0;
}

/* Output samples due in the calls that return 0, during which the host plays silence. The first sample that
 * it gets afterwards belongs to the first sample that it fed, but for the converters. */
int64_t silent_samples(const vq_ns_data& ns) {
    const int64_t piece = ns.input_rate / 100;
    const int64_t needed = static_cast<int64_t>(kSamplesBeforeOutput) * ns.input_rate;
    const int64_t calls = (needed + piece * VQ_NS_RATE - 1) / (piece * VQ_NS_RATE);
    return calls * piece * ns.output_rate / ns.input_rate;
}

}  // namespace

int32_t vq_ns_delay(const vq_ns_data* ns) {
    if (ns == nullptr || !can_process(*ns) || ns->input_rate < 100) return -1;
    const double converters =
        converter_seconds(ns->input_converter_on, ns->input_converter.instance, ns->input_rate) +
        converter_seconds(ns->output_converter_on, ns->output_converter.instance, VQ_NS_RATE);
    return static_cast<int32_t>(silent_samples(*ns) + std::lround(converters * ns->output_rate));
}
