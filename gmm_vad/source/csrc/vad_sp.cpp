#include "vad_sp.h"

#include <string.h>

#include "spl_require.h"
#include "spl_wrap.h"

namespace {

constexpr int channels = 6;
constexpr int depth = 16;
constexpr int16_t oldest = 100;  // frames
constexpr int16_t empty_age = 101;
constexpr int16_t empty_value = 10000;    // above every feature
constexpr int16_t initial_mean = 1600;    // Q4 dB
constexpr int32_t weight_falling = 6554;  // Q15, of the old mean: 0.2
constexpr int32_t weight_rising = 32440;  // 0.99
constexpr int32_t weight_sum = 32768;

constexpr int32_t upper_coefficient = 5243;  // Q13
constexpr int32_t lower_coefficient = 1392;

void age_values(int16_t* age, int16_t* value) {
    for (int i = 0; i < depth; i++) {
        if (age[i] != oldest) {
            if (age[i] < INT16_MAX) age[i]++;
            continue;
        }
        const size_t above = static_cast<size_t>(depth - 1 - i) * sizeof *age;
        memmove(age + i, age + i + 1, above);
        memmove(value + i, value + i + 1, above);
        age[depth - 1] = empty_age;
        value[depth - 1] = empty_value;
    }
}

void insert_value(int16_t* age, int16_t* value, int16_t x) {
    if (x >= value[depth - 1]) return;
    int p = 0;
    while (value[p] <= x) p++;
    const size_t above = static_cast<size_t>(depth - 1 - p) * sizeof *age;
    memmove(age + p + 1, age + p, above);
    memmove(value + p + 1, value + p, above);
    age[p] = 1;
    value[p] = x;
}

int16_t blend(int32_t old_weight, int16_t old_mean, int16_t current) {
    return low16((old_mean * old_weight + current * (weight_sum - old_weight) + (1 << 14)) >> 15);
}

}  // namespace

int16_t TarvikGmmVad_FindMinimum(VadInstT* instance, int16_t feature, int32_t channel) {
    require(channel >= 0 && channel < channels, "(channel) < (kNumChannels)",
            "../../gmm_vad/source/csrc/vad_sp",
            "int16_t TarvikGmmVad_FindMinimum(VadInstT*, int16_t, int32_t)");
    int16_t* const age = instance->min_age + depth * channel;
    int16_t* const value = instance->min_values + depth * channel;
    int16_t& mean = instance->min_mean[channel];

    age_values(age, value);
    insert_value(age, value, feature);

    // The third smallest, to disregard outliers, once three frames have gone before.
    if (instance->frame_count == 0) {
        mean = blend(1, mean, initial_mean);
    } else {
        const int16_t current = instance->frame_count > 2 ? value[2] : value[0];
        mean = blend(current < mean ? weight_falling : weight_rising, mean, current);
    }
    return mean;
}

void TarvikGmmVad_Downsampling(const int16_t* in, int16_t* out, int32_t* state, size_t length) {
    int32_t s0 = state[0];
    int32_t s1 = state[1];
    for (size_t i = 0; i < length / 2; i++) {
        const int16_t even = in[2 * i];
        const int16_t odd = in[2 * i + 1];
        const int32_t t1 = (s0 >> 1) + ((even * upper_coefficient) >> 14);
        const int32_t t2 = (s1 >> 1) + ((odd * lower_coefficient) >> 14);
        s0 = even - ((low16(t1) * upper_coefficient) >> 12);
        s1 = odd - ((low16(t2) * lower_coefficient) >> 12);
        out[i] = low16(wrap_add(t1, t2));
    }
    state[0] = s0;
    state[1] = s1;
}
