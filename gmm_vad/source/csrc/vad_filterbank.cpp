#include "vad_filterbank.h"

#include <bit>

#include "signal_processing_library.h"
#include "spl_require.h"
#include "spl_wrap.h"

namespace {

constexpr const char* source = "../../gmm_vad/source/csrc/vad_filterbank";
constexpr size_t longest_frame = 240;
constexpr int16_t silence = 10;

// Added to the log energies, Q4 dB: bands of fewer samples get more.
constexpr int16_t offset_quarter = 176;
constexpr int16_t offset_eighth = 272;
constexpr int16_t offset_sixteenth = 368;

constexpr int32_t upper_coefficient = 20972;  // Q15, 0.64
constexpr int32_t lower_coefficient = 5571;   // Q15, 0.17
constexpr int32_t db_per_octave_q13 = 24660;  // 10 log10 2

// High-pass, direct form I, Q14, at 500 Hz.
constexpr int32_t forward[3] = {6631, -13262, 6631};
constexpr int32_t feedback[2] = {7756, -5620};

void all_pass(const int16_t* in, size_t half, int32_t coefficient, int16_t* state, int16_t* out) {
    int32_t s = *state * (1 << 16);
    for (size_t i = 0; i < half; i++) {
        const int16_t x = in[2 * i];
        const int16_t y = low16(wrap_add(x * coefficient, s) >> 16);
        out[i] = y;
        s = wrap_mul(x * (1 << 14) - y * coefficient, 2);
    }
    *state = low16(s >> 16);
}

// Half-band split into length / 2 samples each of the high and the low band.
void SplitFilter(const int16_t* in, size_t length, int16_t* upper_state, int16_t* lower_state,
                 int16_t* hp_out, int16_t* lp_out) {
    if (length <= 1) return;
    const size_t half = length / 2;
    all_pass(in, half, upper_coefficient, upper_state, hp_out);
    all_pass(in + 1, half, lower_coefficient, lower_state, lp_out);
    for (size_t i = 0; i < half; i++) {
        const int16_t t = hp_out[i];
        hp_out[i] = low16(t - lp_out[i]);
        lp_out[i] = low16(lp_out[i] + t);
    }
}

// Takes what lies below about 85 Hz (-3 dB) out of the lowest band, in place.
void high_pass(int16_t* band, size_t length, int16_t state[4]) {
    for (size_t i = 0; i < length; i++) {
        const int16_t x = band[i];
        const int16_t y = low16((forward[0] * x + forward[1] * state[0] + forward[2] * state[1] +
                                 feedback[0] * state[2] + feedback[1] * state[3]) >>
                                14);
        state[1] = state[0];
        state[0] = x;
        state[3] = state[2];
        state[2] = y;
        band[i] = y;
    }
}

void LogOfEnergy(const int16_t* in, size_t length, int16_t offset, int16_t* total_energy,
                 int16_t* log_energy) {
    require(length > 0, "(data_length) > (0)", source,
            "void LogOfEnergy(const int16_t*, size_t, int16_t, int16_t*, int16_t*)");
    int32_t scale = 0;
    const uint32_t energy = static_cast<uint32_t>(TarvikSpl_Energy(in, length, &scale));
    if (energy == 0) {
        *log_energy = offset;
        return;
    }

    // energy = mantissa * 2^shift, with the mantissa's leading one in bit 14.
    const int shift = 17 - std::countl_zero(energy);
    const int32_t mantissa = static_cast<int32_t>(shift >= 0 ? energy >> shift : energy << -shift);
    const int32_t exponent = scale + shift;

    // log2(1 + f) is taken as f, so the mantissa's bits below the leading one are its logarithm.
    const int32_t log2_q10 = (14 << 10) + ((mantissa >> 4) & 0x3FF);
    const int16_t db = low16(((log2_q10 * db_per_octave_q13) >> 19) + ((exponent * db_per_octave_q13) >> 9));
    *log_energy = low16((db < 0 ? 0 : db) + offset);

    // Once above silence the total is known to be enough.
    if (*total_energy <= silence) {
        *total_energy = low16(*total_energy + (exponent >= 0 ? silence + 1 : mantissa >> -exponent));
    }
}

}  // namespace

int16_t TarvikGmmVad_CalculateFeatures(VadInstT* instance, const int16_t* frame, size_t length,
                                       int16_t* features) {
    require(length <= longest_frame, "(data_length) <= (240)", source,
            "int16_t TarvikGmmVad_CalculateFeatures(VadInstT*, const int16_t*, size_t, int16_t*)");
    int16_t* const upper = instance->filter_state;
    int16_t* const lower = upper + 5;
    int16_t total = 0;
    int16_t above_2000[120] = {};  // 2-4 kHz at 4 kHz
    int16_t below_2000[120] = {};
    int16_t high[60] = {};
    int16_t low[60] = {};
    int16_t high_again[30] = {};
    int16_t low_again[30] = {};

    SplitFilter(frame, length, upper, lower, above_2000, below_2000);

    // Decimation mirrors the upper half, so its high output holds 2-3 kHz and its low output 3-4 kHz.
    SplitFilter(above_2000, length / 2, upper + 1, lower + 1, high, low);
    LogOfEnergy(high, length / 4, offset_quarter, &total, &features[5]);
    LogOfEnergy(low, length / 4, offset_quarter, &total, &features[4]);

    SplitFilter(below_2000, length / 2, upper + 2, lower + 2, high, low);
    LogOfEnergy(high, length / 4, offset_quarter, &total, &features[3]);

    SplitFilter(low, length / 4, upper + 3, lower + 3, high_again, low_again);
    LogOfEnergy(high_again, length / 8, offset_eighth, &total, &features[2]);

    SplitFilter(low_again, length / 8, upper + 4, lower + 4, high, low);
    LogOfEnergy(high, length / 16, offset_sixteenth, &total, &features[1]);

    high_pass(low, length / 16, instance->filter_state + 10);
    LogOfEnergy(low, length / 16, offset_sixteenth, &total, &features[0]);
    return total;
}
