// rate_converter_info.h - what a prepared converter can tell about itself.
#ifndef VQNS_RATE_CONVERTER_INFO_H
#define VQNS_RATE_CONVERTER_INFO_H

#include "rate_converter.h"

namespace vqns {

// False after a refused initialisation.
bool converter_ready(const rk_voip_dsp_src_inst_t& converter);

// The delay in input samples (of one channel): output m shows the input at m * in_rate / out_rate less this
// delay. Exact, since every prototype is symmetric about a whole tap. 0 if not ready.
double converter_delay(const rk_voip_dsp_src_inst_t& converter);

// Samples of room that a call with count input samples needs in its output and in the work buffer,
// whatever came before. Both 0 if not ready.
struct ConverterRoom {
    int32_t out, work;
};
ConverterRoom converter_room(const rk_voip_dsp_src_inst_t& converter, int32_t count);

}  // namespace vqns

#endif
