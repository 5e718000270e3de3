#include "basic_operators.h"
#include "vq_ns_qmf.h"

namespace {

enum { kTaps = 24 };

/* Products of 16-bit values summed over 12 taps stay within 31 bits: the magnitudes of the even taps and of
 * the odd ones add up to 12964 each. */
struct Sums {
    int32_t even, odd;
};

/* A line is written from the top down, each value twice, so that the last 24 lie side by side, newest first.
 */
Sums push_pair(int16_t* line, int16_t* index, int16_t older, int16_t newer) {
    const int32_t i = *index;
    line[i] = line[i + kTaps] = older;
    line[i - 1] = line[i - 1 + kTaps] = newer;
    const int16_t* v = line + i - 1;
    Sums sums = {0, 0};
    for (int k = 0; k < kTaps; k += 2) {
        sums.even += vq_ns_qcoef[k] * v[k];
        sums.odd += vq_ns_qcoef[k + 1] * v[k + 1];
    }
    *index = static_cast<int16_t>(i >= 2 ? i - 2 : kTaps - 1);
    return sums;
}

int16_t band_sample(int32_t a, int32_t b) {
    int32_t s = rk_L_add(a, b);
    s = rk_L_add(s, s) >> 16;
    return static_cast<int16_t>(s > 16383 ? 16383 : s < -16384 ? -16384 : s);
}

int16_t merged_sample(int32_t sum) {
    for (int doubling = 0; doubling < 4; ++doubling) sum = rk_L_add(sum, sum);
    return static_cast<int16_t>(sum >> 16);
}

}  // namespace

int32_t vq_ns_qinit(vq_ns_qmf_state* state) {
    *state = {};
    state->analysis_index = state->synthesis_index = kTaps - 1;
    return 0;
}

void vq_ns_qsplit(vq_ns_qmf_state* state, const int16_t* input, int16_t* low, int16_t* high, int16_t count) {
    for (int32_t i = 0; i < count / 2; ++i) {
        const Sums s = push_pair(state->analysis, &state->analysis_index, input[2 * i], input[2 * i + 1]);
        low[i] = band_sample(s.even, s.odd);
        high[i] = band_sample(s.even, -s.odd);
    }
}

void vq_ns_qmix(vq_ns_qmf_state* state, const int16_t* low, const int16_t* high, int16_t* output,
                int16_t count) {
    for (int32_t i = 0; i < count; ++i) {
        const int16_t difference = rk_sub(low[i], high[i]);
        const int16_t sum = rk_add(low[i], high[i]);
        const Sums s = push_pair(state->synthesis, &state->synthesis_index, sum, difference);
        output[2 * i] = merged_sample(s.even);
        output[2 * i + 1] = merged_sample(s.odd);
    }
}
