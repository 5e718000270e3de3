#include "gain_estimator.h"

#include <algorithm>

#include "basic_operators.h"
#include "gain_apply.h"

namespace {

constexpr int32_t kFrame = RK_DSP_DGC_KWENH_FRAME;
constexpr int32_t kSmallestGain = 144;
constexpr int32_t kHysteresis = 5000;

// About twice the mean square. The sum wraps on frames near full scale.
int32_t power_of(const int16_t* frame) {
    constexpr int16_t share = 6560;
    uint32_t sum = 0;
    for (int32_t i = 0; i < kFrame; ++i) {
        const int32_t quarter = frame[i] >> 2;
        sum += static_cast<uint32_t>(quarter * quarter);
    }
    return rk_L_mls(static_cast<int32_t>(sum), share);
}

void remember_power(rk_voip_dsp_dgc_kwenh_data_t* record, int32_t power) {
    const int16_t at = record->power_index < RK_DSP_DGC_KWENH_POWERS ? record->power_index : int16_t{0};
    record->frame_power[at] = power;
    record->power_index = static_cast<int16_t>(at + 1);
    // The average follows the first place of the ring, which changes every tenth speech frame.
    record->power_avg += (record->frame_power[0] - record->power_avg) >> 9;
}

// Inverse to the rms of the loudest of the last frames: unity at an rms of target_level^2 / 2^17.
int32_t desired_gain(const rk_voip_dsp_dgc_kwenh_data_t* record) {
    const int32_t loudest =
        *std::max_element(record->frame_power, record->frame_power + RK_DSP_DGC_KWENH_POWERS);
    const int64_t reciprocal = rk_dgc_kwenh_inv_sqrt(rk_L_shr(loudest, 1));
    const int64_t level = record->target_level;
    return static_cast<int32_t>((reciprocal * (level * level)) >> 32);
}

// Falls fast, rises slowly, and rises faster out of a deep cut.
void track(rk_voip_dsp_dgc_kwenh_data_t* record, int32_t desired) {
    constexpr int32_t deep_cut = 50000;
    const int32_t distance = desired - record->gain_track;
    const int shift = distance <= 0 ? 3 : distance < deep_cut ? 9 : 4;
    record->gain_track += distance >> shift;
    record->gain_smooth += (record->gain_track - record->gain_smooth) >> 7;
}

// Lowers gain_smooth until no sample of the frame, which already carries gain_speech, exceeds the limit when
// it is gained once more: a margin for the rise that may follow. True if it had to. One pass will do: a
// sample within the limit stays there when the gain falls.
bool guard_peaks(rk_voip_dsp_dgc_kwenh_data_t* record, const int16_t* frame) {
    constexpr int16_t step = 31000;
    bool limited = false;
    for (int32_t i = 0; i < kFrame; ++i) {
        while (rk_L_abs(rk_L_mls(record->gain_smooth, frame[i])) > record->peak_limit) {
            record->gain_smooth = rk_L_mls(record->gain_smooth, step);
            limited = true;
        }
    }
    return limited;
}

}  // namespace

int32_t rk_dgc_kwenh_inv_sqrt(int32_t x) {
    if (x <= 0) return 0x3FFFFFFF;
    int16_t exponent = rk_L_norm(x);
    x = rk_L_shl(x, exponent);
    exponent = rk_sub(30, exponent);
    // An even exponent leaves the mantissa in 1..2, an odd one in 2..4.
    if ((exponent & 1) == 0) x = rk_L_shr(x, 1);
    exponent = rk_add(rk_shr(exponent, 1), 1);

    x = rk_L_shr(x, 9);
    const int16_t at = rk_sub(rk_extract_h(x), 16);
    const int16_t between = static_cast<int16_t>(rk_extract_l(rk_L_shr(x, 1)) & 0x7FFF);
    const int16_t* entry = rk_voip_dsp_dgc_kwenh_tabsqr + at;
    const int32_t y = rk_L_msu(rk_L_deposit_h(entry[0]), rk_sub(entry[0], entry[1]), between);
    return rk_L_shr(y, exponent);
}

int32_t rk_dsp_dgc_kwenh_gain_est(rk_voip_dsp_dgc_kwenh_data_t* record, int16_t* frame) {
    rk_dsp_dgc_kwenh_apply(frame, kFrame, record->gain_speech);
    remember_power(record, power_of(frame));
    track(record, desired_gain(record));
    const bool limited = guard_peaks(record, frame);

    // Not a clamp: a limit below the smallest gain stands.
    if (record->gain_smooth > record->gain_max) {
        record->gain_smooth = record->gain_max;
    } else if (record->gain_smooth < kSmallestGain) {
        record->gain_smooth = kSmallestGain;
    }

    const int32_t change = record->gain_smooth - record->gain_speech;
    if (limited || change <= -kHysteresis || change >= kHysteresis) {
        record->gain_speech = record->gain_smooth;
    }
    return record->gain_speech;
}
