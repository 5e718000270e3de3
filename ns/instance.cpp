#include "instance.h"

#include "rate_converter_info.h"

namespace {

bool runs(int16_t is_on, const rk_voip_dsp_src_inst_t& converter) {
    return is_on == 0 || vqns::converter_ready(converter);
}

}  // namespace

bool can_process(const vq_ns_data& ns) {
    return runs(ns.input_converter_on, ns.input_converter.instance) &&
           runs(ns.output_converter_on, ns.output_converter.instance);
}

size_t vq_ns_data_size(void) {
    return sizeof(vq_ns_data);
}

size_t vq_ns_data_alignment(void) {
    return alignof(vq_ns_data);
}

const char* vqns_version(void) {
    return VQNS_VERSION;
}
