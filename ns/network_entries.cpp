#include "network.h"
#include "vq_ns_pipeline.h"

int32_t vq_ns_dpcrn_encoder(vq_ns_data* ns, const float* in, float* out, int32_t bins) {
    if (bins != VQ_NS_BINS) return -1;
    return network_encode(&ns->network, &ns->kernels, in, out, bins);
}

void vq_ns_dpcrn_sep(vq_ns_data* ns, const float* in, float* out) {
    network_separate(&ns->network, &ns->kernels, in, out);
}

void vq_ns_dpcrn_decoder(vq_ns_data* ns, float* in, float* out, int32_t rows) {
    if (rows != VQ_NS_MAP_ROWS) return;
    const int32_t slot = ns->decoder_slot * VQ_NS_BINS;
    network_decode(&ns->network, &ns->kernels, in, ns->history_re + slot, ns->history_im + slot, out, rows);
    ns->decoder_slot = static_cast<int16_t>((ns->decoder_slot + 1) % VQ_NS_SPECTRUM_SLOTS);
}
