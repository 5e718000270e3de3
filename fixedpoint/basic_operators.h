/* basic_operators.h - saturating 16- and 32-bit fixed-point operators.
 *
 * The operators have the semantics of the ITU-T basic operators of the G.729 and G.723.1 generation
 * (see ITU-T G.191 for their history), with the older carry rules of the operators ending in _c and
 * with the differences stated beside each function.
 *
 * Values are signed: int16_t in Q15 and int32_t in Q31 where an operator multiplies, plain integers
 * elsewhere. Right shifts are arithmetic and round towards minus infinity. "Saturates" means that a
 * result outside the type becomes its nearest end and that OverflowBit is set to 1. "Wraps" means
 * modulo 2^32, with no flag. No argument is checked and nothing fails.
 *
 * Flags. An operator touches a flag only where its description says so, or through another operator
 * that it is described in terms of: rk_div changes OverflowBit because rk_add does. Most operators
 * never clear OverflowBit; rk_saturate, rk_add, rk_sub, rk_mult and rk_mult_r write it every time.
 *
 * Threads. The flags are plain variables shared by the whole process. Two threads that use the
 * operators at once race on them; no result of an operator depends on a flag except those of
 * rk_L_sat, rk_L_add_c and rk_L_sub_c.
 */
#ifndef VQNS_BASIC_OPERATORS_H
#define VQNS_BASIC_OPERATORS_H

#include "vqns_api.h"

VQNS_DATA int16_t CarryBit;    /* 0 or 1; zero at load */
VQNS_DATA int16_t OverflowBit; /* 0 or 1; zero at load */

/* 16-bit arithmetic */

/* |a| and -a; -32768 gives 32767 and no flag. */
VQNS_API int16_t rk_abs(int16_t a);
VQNS_API int16_t rk_negate(int16_t a);

/* L limited to 16 bits; writes OverflowBit: 1 if it had to be limited, else 0. */
VQNS_API int16_t rk_saturate(int32_t L);

/* rk_saturate of a + b, a - b, (a b) >> 15, and (a b + 16384) >> 15. */
VQNS_API int16_t rk_add(int16_t a, int16_t b);
VQNS_API int16_t rk_sub(int16_t a, int16_t b);
VQNS_API int16_t rk_mult(int16_t a, int16_t b);
VQNS_API int16_t rk_mult_r(int16_t a, int16_t b);

/* 32-bit arithmetic */

/* -L and |L|; the smallest integer gives the largest and no flag. */
VQNS_API int32_t rk_L_negate(int32_t L);
VQNS_API int32_t rk_L_abs(int32_t L);

/* L1 + L2 and L1 - L2; saturate. */
VQNS_API int32_t rk_L_add(int32_t L1, int32_t L2);
VQNS_API int32_t rk_L_sub(int32_t L1, int32_t L2);

/* 2 a b; saturates (for -32768 times -32768 alone). */
VQNS_API int32_t rk_L_mult(int16_t a, int16_t b);

/* rk_L_add(L, rk_L_mult(a, b)) and rk_L_sub(L, rk_L_mult(a, b)). */
VQNS_API int32_t rk_L_mac(int32_t L, int16_t a, int16_t b);
VQNS_API int32_t rk_L_msu(int32_t L, int16_t a, int16_t b);

/* Upper half of L + 0x8000, of rk_L_mac(L, a, b) + 0x8000 and of rk_L_msu(L, a, b) + 0x8000; the
 * sums saturate. */
VQNS_API int16_t rk_round(int32_t L);
VQNS_API int16_t rk_mac_r(int32_t L, int16_t a, int16_t b);
VQNS_API int16_t rk_msu_r(int32_t L, int16_t a, int16_t b);

/* The largest int32_t if OverflowBit is set (the smallest if CarryBit is set too), and clears both
 * flags; otherwise L, flags untouched. */
VQNS_API int32_t rk_L_sat(int32_t L);

/* L1 + L2 + CarryBit, wrapping. Both flags are written; they describe L1 + L2 without the carry:
 *   two positives exceed the range           OverflowBit 1, CarryBit 0
 *   two negatives wrap to a positive sum     OverflowBit 1, CarryBit 1
 *   signs differ and the sum is positive     OverflowBit 0, CarryBit 1
 *   otherwise                                OverflowBit 0, CarryBit 0
 * except that with a carry coming in a sum of 0x7FFFFFFF also sets OverflowBit and a sum of -1 sets
 * CarryBit. This is the older rule: two negatives whose sum stays negative carry nothing. */
VQNS_API int32_t rk_L_add_c(int32_t L1, int32_t L2);

/* With CarryBit set: clears it and returns rk_L_add_c(L1, -L2); for the smallest L2, which has no
 * negation, returns L1 - L2, wrapping, and sets OverflowBit if L1 > 0.
 * With CarryBit clear: L1 - L2 - 1, wrapping; the flags describe d = L1 - L2, wrapped:
 *   L1 > 0, L2 < 0, d < 0                                OverflowBit 1, CarryBit 0
 *   L1 < 0, L2 > 0, d > 0                                OverflowBit 1, CarryBit 1
 *   same signs, d > 0                                    OverflowBit 0, CarryBit 1
 *   otherwise                                            OverflowBit kept, CarryBit 0
 * and d = -2^31 sets OverflowBit. */
VQNS_API int32_t rk_L_sub_c(int32_t L1, int32_t L2);

/* Halves */

VQNS_API int16_t rk_extract_h(int32_t L);   /* L >> 16 */
VQNS_API int16_t rk_extract_l(int32_t L);   /* the lower 16 bits */
VQNS_API int32_t rk_L_deposit_h(int16_t a); /* a x 65536 */
VQNS_API int32_t rk_L_deposit_l(int16_t a); /* a */

/* Shifts. A negative count shifts the other way by the opposite count. Left shifts saturate; right
 * shifts by the width or more leave the sign (-1 or 0). A count of -32768 has no opposite in 16
 * bits: it must not be passed, the call would not return. */

VQNS_API int16_t rk_shl(int16_t a, int16_t n);
VQNS_API int16_t rk_shr(int16_t a, int16_t n);
VQNS_API int32_t rk_L_shl(int32_t L, int16_t n);
VQNS_API int32_t rk_L_shr(int32_t L, int16_t n);

/* Right shifts that round to nearest, halves up; a count above 15 (31) gives 0. */
VQNS_API int16_t rk_shr_r(int16_t a, int16_t n);
VQNS_API int32_t rk_L_shr_r(int32_t L, int16_t n);

/* Left shifts that bring the value, or its one's complement if negative, to at least half of the
 * range; 0 gives 0, -1 gives 15 (31). */
VQNS_API int16_t rk_norm(int16_t a);
VQNS_API int16_t rk_L_norm(int32_t L);

/* Division */

/* num / den in Q15 for 0 <= num <= den, den > 0: the quotient truncated to 15 bits, and 32767 for
 * num = den. Other arguments run the same 15 shift-and-subtract steps: den = 0 with num > 0 gives
 * 32767, num < 0 with den > 0 gives 0. OverflowBit is cleared if any quotient bit is set. */
VQNS_API int16_t rk_div(int16_t num, int16_t den);

/* num / (2 den) as an integer for num >= 0, den > 0, and 32767 where num >= den x 65536: a Q31 number
 * over a Q15 number in Q15. No flag. */
VQNS_API int16_t rk_div_l(int32_t num, int16_t den);

/* Double precision: a 32-bit number as an upper half and a 15-bit lower part, L = hi 2^16 + lo 2. */

VQNS_API void rk_Extract(int32_t L, int16_t* hi, int16_t* lo); /* drops the lowest bit of L */
VQNS_API int32_t rk_Comp(int16_t hi, int16_t lo);              /* saturates */

/* L v / 32768, rounded down; saturates. For L = -2^31 and up to 65535 above it with v = -32768 the
 * result is one less than the exact value and OverflowBit is set. The two are equal. */
VQNS_API int32_t rk_mls(int32_t L, int16_t v);
VQNS_API int32_t rk_L_mls(int32_t L, int16_t v);

/* 2 hi1 hi2 + 2 ((hi1 lo2) >> 15) + 2 ((lo1 hi2) >> 15), wrapping: the Q31 product of two numbers. */
VQNS_API int32_t rk_Mpy_32(int16_t hi1, int16_t lo1, int16_t hi2, int16_t lo2);

/* 2 hi n + 2 ((lo n) >> 15), wrapping: the Q31 product of a Q31 and a Q15 number. */
VQNS_API int32_t rk_Mpy_32_16(int16_t hi, int16_t lo, int16_t n);

/* num / den in Q31 for 0 <= num < den and den_hi in 0x4000..0x7FFF, by one Newton step on a 14-bit
 * reciprocal; saturates. */
VQNS_API int32_t rk_Div_32(int32_t num, int16_t den_hi, int16_t den_lo);

#endif
