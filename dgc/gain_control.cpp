#include "gain_control.h"

#include <stdio.h>
#include <stdlib.h>

#include <algorithm>

#include "basic_operators.h"
#include "gain_apply.h"
#include "gain_estimator.h"
#include "log_exp.h"

int32_t get_op1;

namespace {

constexpr int32_t kAnalysisRate = 16000;
constexpr int32_t kFrame = RK_DSP_DGC_KWENH_FRAME;
constexpr int32_t kScratch = 8192;
// The largest expansion on the way to 16 kHz is two (from 8 kHz).
constexpr int32_t kBlock = kScratch / 2;
static_assert(RK_DSP_DGC_KWENH_SRC_WORK >= kScratch);

// Fills frames with 16 kHz samples; each complete one goes to the detector and, if speech, to the estimator.
// Returns the detector's verdict on the last frame completed, or `verdict` if there was none.
int32_t cut_frames(rk_voip_dsp_dgc_kwenh_data_t* record, const int16_t* pcm, int32_t count, int32_t verdict) {
    for (const int16_t* const end = pcm + count; pcm != end;) {
        const int32_t held = record->pending_count;
        const int32_t taken = std::min(kFrame - held, static_cast<int32_t>(end - pcm));
        std::copy_n(pcm, taken, record->pending + held);
        pcm += taken;
        record->pending_count = static_cast<int16_t>(held + taken);
        if (record->pending_count < kFrame) break;

        record->pending_count = 0;
        verdict =
            record->vad_handle ? TarvikGmmVad_api_Process(record->vad_handle, record->pending, kFrame) : -1;
        if (verdict == 1) rk_dsp_dgc_kwenh_gain_est(record, record->pending);
    }
    return verdict;
}

// Analyses every stride-th sample, `count` of them at the record's rate.
int32_t analyse(rk_voip_dsp_dgc_kwenh_data_t* record, const int16_t* samples, int32_t stride, int32_t count) {
    int16_t block[kBlock];
    int16_t converted[kScratch];
    int32_t verdict = 0;
    for (int32_t done = 0; done < count;) {
        const int32_t taken = std::min(kBlock, count - done);
        for (int32_t i = 0; i < taken; ++i) block[i] = samples[(done + i) * stride];
        done += taken;
        if (!record->resample_on) {
            verdict = cut_frames(record, block, taken, verdict);
        } else if (record->src_handle) {
            const int32_t produced = rk_voip_dsp_src_proc(&record->src_handle, block, converted, taken);
            verdict = cut_frames(record, converted, produced, verdict);
        }
    }
    record->gain_applied = verdict == 1 ? record->gain_speech : record->gain_idle;
    return record->gain_applied;
}

}  // namespace

int32_t rk_dsp_dgc_kwenh_init(rk_voip_dsp_dgc_kwenh_data_t* record, int16_t target_level, int32_t sample_rate,
                              int16_t max_gain, const int32_t* vad_config) {
    *record = {};
    fixedpoint_init();
    record->target_level = target_level;
    record->peak_limit = 32000;
    record->gain_max = max_gain * 32767;
    record->target_power = rk_L_mult(target_level, target_level);
    // Before anything can fail: a record without its detector still answers unity.
    record->gain_applied = RK_DSP_DGC_KWENH_UNITY;
    record->gain_smooth = RK_DSP_DGC_KWENH_UNITY;
    record->gain_track = RK_DSP_DGC_KWENH_UNITY;
    record->gain_speech = RK_DSP_DGC_KWENH_UNITY;
    record->gain_idle = RK_DSP_DGC_KWENH_UNITY;
    const int32_t quarter = target_level >> 2;
    record->power_avg = quarter * quarter;

    if (sample_rate != kAnalysisRate) {
        record->resample_on = 1;
        record->src_handle =
            static_cast<rk_voip_dsp_src_inst_t*>(calloc(1, RK_VOIP_DSP_SRC_BYTES(RK_DSP_DGC_KWENH_SRC_WORK)));
        if (!record->src_handle) return -1;
        // A converter that refuses the rate produces nothing, so no frame is ever judged: unity.
        rk_voip_dsp_src_init(&record->src_handle, static_cast<uint32_t>(sample_rate), kAnalysisRate,
                             RK_SRC_MONO_TO_MONO, 1);
    }

    record->vad_handle = static_cast<TarvikGmmVad_api_t*>(calloc(1, sizeof(TarvikGmmVad_api_t)));
    if (!record->vad_handle || TarvikGmmVad_api_Init(record->vad_handle, vad_config) != 0) {
        puts("TarvikGmmVad_api_Init fail");
        return -1;
    }
    get_op1 = 1;
    return 0;
}

int32_t rk_dsp_dgc_kwenh_process(rk_voip_dsp_dgc_kwenh_data_t* record, const int16_t* samples,
                                 int16_t count) {
    return analyse(record, samples, 1, count);
}

int32_t rk_dsp_dgc_kwenh_api_process(rk_voip_dsp_dgc_kwenh_data_t* record, int16_t* buffer, int16_t frames,
                                     int16_t channels) {
    if (frames < 1 || channels < 1) {
        const int16_t silence = 0;
        analyse(record, &silence, 0, frames);
        return 0;
    }
    const int32_t gain = analyse(record, buffer, channels, frames);
    rk_dsp_dgc_kwenh_apply(buffer, frames * channels, gain);
    return 0;
}

void rk_dsp_dgc_kwenh_control(rk_voip_dsp_dgc_kwenh_data_t* record, int32_t command) {
    if (command == RK_DSP_DGC_KWENH_PAUSE) {
        record->paused = 1;
        get_op1 = 0;
        puts("DGC1 PAUSE ");
    } else if (command == RK_DSP_DGC_KWENH_RESUME) {
        record->paused = 0;
        get_op1 = 1;
        puts("DGC1 RESUME ");
    }
}

int32_t rk_dsp_dgc_kwenh_deinit(rk_voip_dsp_dgc_kwenh_data_t* record) {
    free(record->src_handle);
    record->src_handle = nullptr;
    if (record->vad_handle) TarvikGmmVad_api_deinit(record->vad_handle);
    free(record->vad_handle);
    record->vad_handle = nullptr;
    return 0;
}

int32_t rk_dsp_dgc_kwenh_sqrt(int32_t x) {
    uint32_t rest = static_cast<uint32_t>(x);
    uint32_t bit = 0x40000000;
    while (bit > rest) bit >>= 2;
    uint32_t root = 0;
    for (; bit != 0; bit >>= 2) {
        if (rest >= root + bit) {
            rest -= root + bit;
            root = (root + 2 * bit) >> 1;
        } else {
            root >>= 1;
        }
    }
    return static_cast<int32_t>(root);
}
