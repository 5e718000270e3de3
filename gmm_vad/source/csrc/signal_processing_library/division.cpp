#include "signal_processing_library.h"
#include "spl_wrap.h"

int32_t TarvikSpl_DivW32W16(int32_t num, int16_t den) {
    if (den == 0) return INT32_MAX;
    if (den == -1) return wrap_neg(num);  // the one quotient that leaves 32 bits traps in hardware
    return num / den;
}
