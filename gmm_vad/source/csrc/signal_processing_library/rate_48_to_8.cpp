#include <string.h>

#include "signal_processing_library.h"
#include "spl_wrap.h"

namespace {

// Q15 taps of the first of every two outputs; the second uses them in reverse.
constexpr int taps = 8;
constexpr int32_t fir_3_to_2[taps] = {778, -2050, 1087, 23285, 12903, -3783, 441, 222};

// The state's groups, one for each stage.
constexpr int to_24k = 0;
constexpr int low_pass = 8;
constexpr int history = 24;
constexpr int to_8k = 32;
constexpr int state_words = 40;

}  // namespace

void TarvikSpl_Resample48khzTo32khz(const int32_t* in, int32_t* out, size_t K) {
    for (size_t k = 0; k < K; k++) {
        const int32_t* p = in + 3 * k;
        int32_t first = 1 << 14;
        int32_t second = 1 << 14;
        for (int j = 0; j < taps; j++) {
            first = wrap_add(first, wrap_mul(fir_3_to_2[j], p[j]));
            second = wrap_add(second, wrap_mul(fir_3_to_2[taps - 1 - j], p[j + 1]));
        }
        out[2 * k] = first;
        out[2 * k + 1] = second;
    }
}

void TarvikSpl_Resample48khzTo8khz(const int16_t* in480, int16_t* out80, int32_t* state40, int32_t* scratch) {
    int32_t* const at_24k = scratch + 256;      // 240 words
    int32_t* const low_passed = scratch + 16;   // 240 words
    int32_t* const with_history = scratch + 8;  // 8 words before them
    int32_t* const at_16k = scratch;            // 160 words

    TarvikSpl_DownBy2ShortToInt(in480, 480, at_24k, state40 + to_24k);
    TarvikSpl_LPBy2IntToInt(at_24k, 240, low_passed, state40 + low_pass);
    memcpy(with_history, state40 + history, taps * sizeof *scratch);
    memcpy(state40 + history, low_passed + 240 - taps, taps * sizeof *scratch);
    TarvikSpl_Resample48khzTo32khz(with_history, at_16k, 80);
    TarvikSpl_DownBy2IntToShort(at_16k, 160, out80, state40 + to_8k);
}

void TarvikSpl_ResetResample48khzTo8khz(int32_t* state40) {
    memset(state40, 0, state_words * sizeof *state40);
}
