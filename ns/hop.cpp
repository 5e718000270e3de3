#include <xmmintrin.h>

#include "vq_ns_model.h"
#include "vq_ns_pipeline.h"

namespace {

enum { kWarm = 3, kFeatureStride = 528, kTail = VQ_NS_FRAME - VQ_NS_HOP };

/* Denormals slow a recurrent network down in silence: they count as zero while it runs, with rounding to
 * nearest and all exceptions masked whatever the host had set. */
unsigned enter_float_mode() {
    enum { kFlushToZero = 0x8000, kDenormalsAreZero = 0x0040, kMaskAllRoundNearest = 0x1f80 };
    const unsigned of_host = _mm_getcsr();
    _mm_setcsr(kFlushToZero | kDenormalsAreZero | kMaskAllRoundNearest);
    return of_host;
}

/* The current spectrum into its slot of the ring, ahead of the slot that the decoder reads. */
void remember_spectrum(vq_ns_data* ns) {
    const int32_t slot = ns->history_slot * VQ_NS_BINS;
    ns->kernels.cpy_dpc(ns->spectrum_re, ns->history_re + slot, VQ_NS_BINS);
    ns->kernels.cpy_dpc(ns->spectrum_im, ns->history_im + slot, VQ_NS_BINS);
    ns->history_slot = static_cast<int16_t>((ns->history_slot + 1) % VQ_NS_SPECTRUM_SLOTS);
}

/* Returns whether a frame was complete. */
bool analyse(vq_ns_data* ns, const int16_t* hop) {
    ns->kernels.s2f(hop, ns->analysis_history + ns->analysis_count, VQ_NS_HOP);
    ns->analysis_count = static_cast<int16_t>(ns->analysis_count + VQ_NS_HOP);
    if (ns->analysis_count < VQ_NS_FRAME) return false;
    for (int32_t i = 0; i < VQ_NS_FRAME; ++i) {
        ns->windowed_frame[i] = ns->analysis_history[i] * hanning_win_coeff[i];
    }
    vq_ns_fft_process(ns->fft_pointer, ns->windowed_frame, true, ns->spectrum_re, ns->spectrum_im);
    ns->analysis_count = static_cast<int16_t>(ns->analysis_count - VQ_NS_HOP);
    ns->kernels.cpy(ns->analysis_history + VQ_NS_HOP, ns->analysis_history, ns->analysis_count);
    return true;
}

void synthesise(vq_ns_data* ns, float* out) {
    const vq_ns_kernel_table& k = ns->kernels;
    float* frame = ns->frame_work;
    vq_ns_ifft_process(ns->fft_pointer, frame, false, ns->spectrum_re, ns->spectrum_im);
    k.smul(frame, hanning_win_coeff, VQ_NS_FRAME);
    k.add(frame, ns->overlap_tail, kTail);
    k.cpy(frame + VQ_NS_HOP, ns->overlap_tail, kTail);
    k.cpy(frame, out, VQ_NS_HOP);
}

int32_t enhance(vq_ns_data* ns, const int16_t* hop, float* out) {
    if (!analyse(ns, hop)) return 0;
    remember_spectrum(ns);
    const vq_ns_kernel_table& k = ns->kernels;
    float* features = ns->frame_work;
    float* map = ns->network.output;
    k.concat(features, ns->spectrum_re, ns->spectrum_im, kFeatureStride);
    /* The padding counts in the sums but not in the divisor. */
    k.nm0(features, ln0, ln0 + kFeatureStride, features, kFeatureStride, VQ_NS_FRAME_FLOATS);
    const int32_t rows = vq_ns_dpcrn_encoder(ns, features, map, VQ_NS_BINS);
    if (ns->network.warm_up < kWarm) return 0;
    ns->network.warm_up = kWarm;
    vq_ns_dpcrn_sep(ns, map, map);
    vq_ns_dpcrn_decoder(ns, map, ns->frame_work, rows);
    synthesise(ns, out);
    return VQ_NS_HOP;
}

/* Full scale 1 to PCM: towards zero, then clamped. The clamp stands before the conversion, which has no
 * result for numbers outside 32 bits. */
int16_t to_pcm(float y) {
    float x = y * 32768.0f;
    x = x < 32767.0f ? x : 32767.0f;
    x = x > -32768.0f ? x : -32768.0f;
    return static_cast<int16_t>(x);
}

}  // namespace

int32_t vq_ns_dpcrn_proc(vq_ns_data* ns, const int16_t* hop, float* out, int32_t count) {
    if (count != VQ_NS_HOP) return -1;
    const unsigned of_host = enter_float_mode();
    const int32_t written = enhance(ns, hop, out);
    _mm_setcsr(of_host);
    return written;
}

int32_t vq_ns_dnn_proc(vq_ns_data* ns, const int16_t* hop, int16_t* out, int32_t count) {
    const int32_t written = vq_ns_dpcrn_proc(ns, hop, ns->network_output, count);
    if (written < 0) return written;
    for (int32_t i = 0; i < written; ++i) out[i] = to_pcm(ns->network_output[i]);
    if (ns->hop_counter < 32767) ++ns->hop_counter;
    return written;
}
