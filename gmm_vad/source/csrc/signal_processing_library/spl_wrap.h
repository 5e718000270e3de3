/* spl_wrap.h - 32-bit arithmetic that wraps in two's complement, without undefined behaviour. */
#ifndef SPL_WRAP_H
#define SPL_WRAP_H

#include <stdint.h>

inline int32_t wrap_add(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

inline int32_t wrap_sub(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

inline int32_t wrap_mul(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

inline int32_t wrap_neg(int32_t a) {
    return wrap_sub(0, a);
}

/* The low half as a signed number. */
inline int16_t low16(int32_t a) {
    return static_cast<int16_t>(a);
}

#endif
