// Half-band low-passes in polyphase form: the even and the odd samples each go through a chain of three
// first-order all-pass sections at the low rate, and the chains' outputs add up in the pass band and cancel
// in the stop band (Regalia, Mitra, Vaidyanathan, "The digital all-pass filter: a versatile signal processing
// building block", Proc. IEEE 76(1), 1988).
#include <algorithm>

#include "signal_processing_library.h"
#include "spl_wrap.h"

namespace {

struct allpass_chain {
    int32_t c[3];  // Q14
};

constexpr allpass_chain chain_a = {{3050, 9368, 15063}};
constexpr allpass_chain chain_b = {{821, 6110, 12382}};

// (a - b) / 2^14 toward zero in the second and third section, where the first one rounds. The correction is
// the cheap one: it is added to every negative quotient, exact ones too.
int32_t shrink(int32_t a, int32_t b) {
    const int32_t d = wrap_sub(a, b) >> 14;
    return d + (d < 0);
}

// s holds the last input of each section and the last output of the third. The result lies within 31 bits, so
// two of them add up without overflow.
int32_t run(const allpass_chain& chain, int32_t x, int32_t s[4]) {
    const int32_t d = wrap_add(wrap_sub(x, s[1]), 1 << 13) >> 14;
    const int32_t t1 = wrap_add(s[0], wrap_mul(d, chain.c[0]));
    const int32_t t2 = wrap_add(s[1], wrap_mul(shrink(t1, s[2]), chain.c[1]));
    const int32_t t3 = wrap_add(s[2], wrap_mul(shrink(t2, s[3]), chain.c[2]));
    s[0] = x;
    s[1] = t1;
    s[2] = t2;
    s[3] = t3;
    return t3 >> 1;
}

// To Q15, plus one half.
int32_t widen(int16_t x) {
    return x * (1 << 15) + (1 << 14);
}

}  // namespace

void TarvikSpl_DownBy2ShortToInt(const int16_t* in, int32_t len, int32_t* out, int32_t* state8) {
    for (int32_t i = 0; i < len / 2; i++) {
        out[i] = run(chain_a, widen(in[2 * i]), state8) + run(chain_b, widen(in[2 * i + 1]), state8 + 4);
    }
}

void TarvikSpl_DownBy2IntToShort(int32_t* in, int32_t len, int16_t* out, int32_t* state8) {
    for (int32_t i = 0; i < len / 2; i++) {
        in[2 * i] = run(chain_a, in[2 * i], state8);
        in[2 * i + 1] = run(chain_b, in[2 * i + 1], state8 + 4);
        out[i] = static_cast<int16_t>(std::clamp((in[2 * i] + in[2 * i + 1]) >> 15, -32768, 32767));
    }
}

void TarvikSpl_LPBy2IntToInt(const int32_t* in, int32_t len, int32_t* out, int32_t* state16) {
    for (int32_t i = 0; i < len / 2; i++) {
        const int32_t even = in[2 * i];
        const int32_t odd = in[2 * i + 1];
        const int32_t last_odd = state16[12];  // the fourth chain's last input
        out[2 * i] = (run(chain_a, last_odd, state16) + run(chain_b, even, state16 + 4)) >> 15;
        out[2 * i + 1] = (run(chain_a, even, state16 + 8) + run(chain_b, odd, state16 + 12)) >> 15;
    }
}
