#include <cpuid.h>

#include <cstring>

#include "instance.h"
#include "kernel_table.h"
#include "vq_ns_pipeline.h"

namespace {

enum { kLowComplexity = 1 };

/* Two feature bits decide, and no others: a processor with AVX2 is taken to have fused multiply-add and an
 * operating system that saves the wide registers. */
void probe_processor(vq_ns_data* ns) {
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (__get_cpuid(1, &a, &b, &c, &d) != 0) ns->has_avx = static_cast<int32_t>(c >> 28 & 1u);
    if (__get_cpuid_count(7, 0, &a, &b, &c, &d) != 0) ns->has_avx2 = static_cast<int32_t>(b >> 5 & 1u);
    ns->kernel_level = ns->has_avx2 != 0  ? VQ_NS_LEVEL_AVX2
                       : ns->has_avx != 0 ? VQ_NS_LEVEL_AVX
                                          : VQ_NS_LEVEL_GENERIC;
}

void start_converter(rk_voip_dsp_src_inst_t** pointer, rk_voip_dsp_src_inst_t* converter, int32_t from,
                     int32_t to) {
    *pointer = converter;
    rk_voip_dsp_src_init(pointer, static_cast<uint32_t>(from), static_cast<uint32_t>(to), RK_SRC_MONO_TO_MONO,
                         kLowComplexity);
}

}  // namespace

int32_t vq_ns_reset(vq_ns_data* ns, int32_t input_rate, int32_t output_rate) {
    std::memset(ns, 0, sizeof *ns);
    probe_processor(ns);
    ns->fft_pointer = &ns->fft;
    vq_ns_fft_init(ns->fft_pointer, 512, ns->kernel_level);
    fill_kernel_table(&ns->kernels, ns->kernel_level);
    if (input_rate != VQ_NS_RATE) {
        ns->input_converter_on = 1;
        start_converter(&ns->input_converter_pointer, &ns->input_converter.instance, input_rate, VQ_NS_RATE);
    }
    if (output_rate != VQ_NS_RATE) {
        ns->output_converter_on = 1;
        start_converter(&ns->output_converter_pointer, &ns->output_converter.instance, VQ_NS_RATE,
                        output_rate);
    }
    ns->input_rate = input_rate;
    ns->output_rate = output_rate;
    ns->output_per_ms = static_cast<float>(output_rate) / 1000.0f;
    vq_ns_qinit(&ns->qmf);
    return 0;
}
