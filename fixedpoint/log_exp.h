/* log_exp.h - bit length, normalisation, natural logarithm and exponential in Q15 integers.
 *
 * fixedpoint_init() must have run before any other function here: all but rk_exponent read `logtable`
 * and do not build it. The gain stage calls it at its own initialisation. No function fails or
 * touches the flags of the basic operators.
 *
 * Threads: two threads that call fixedpoint_init() for the first time at once write the same bytes to
 * the same places without a lock; call it once before starting threads. Afterwards all functions may
 * be called from any thread.
 */
#ifndef VQNS_LOG_EXP_H
#define VQNS_LOG_EXP_H

#include "vqns_api.h"

/* Builds `logtable`; calls after the first return at once. The value returned means nothing. */
VQNS_API int32_t fixedpoint_init(void);

/* Bit length of v: 0 for 0, otherwise 1 + floor(log2 v). */
VQNS_API uint8_t log2plus1(uint16_t v);

/* floor(log2 v) for v >= 2, and 0 for 0 and 1. */
VQNS_API uint8_t rk_log2(uint16_t v);

/* Left shifts that bring |x| to bit 30: 30 for 1, 31 for 0, and -1 for -2^31, which is beyond it.
 * Unlike rk_L_norm it looks at the magnitude, not at the one's complement. */
VQNS_API int32_t norm(int32_t x);

/* 32768 ln(x / 32768) for x > 0, by a fifth-degree polynomial on the mantissa: within 4 of the exact value
 * everywhere. For x <= 0 the smallest int32_t. */
VQNS_API int32_t logn(int32_t x);

/* 32768 exp(x / 32768), from a table of e^i and an eighth-degree series on the fraction in [-0.5, 0.5):
 * within 1 plus 0.01 % of the exact value up to |x| = 11 x 32768. From 32768 ln 65536 (11.09) on exp(|x|)
 * does not fit: a positive argument wraps, a negative one gives 0 or -1. From 11.5 on both give 0x7FFFFFFF.
 */
VQNS_API int32_t rk_exponent(int32_t x);

/* Tables */
VQNS_DATA uint8_t logtable[65536];             /* bit lengths; zero until fixedpoint_init() */
VQNS_DATA const uint16_t exptable[16];         /* 2^k */
VQNS_DATA const int32_t logncoefftable[5];     /* ln(1 + m), m^1 to m^5, Q15 */
VQNS_DATA const int32_t expcoefftable[9];      /* exp(f), f^0 to f^8: 1/k! in Q15 */
VQNS_DATA const int32_t integerexptable[12];   /* floor(e^i) */
VQNS_DATA const int32_t fractionexptable[12];  /* fraction of e^i in Q15 */
VQNS_DATA const int32_t complexpcoefftable[9]; /* series of exp(j f), signs + + - - + + - - +, Q15 */

#endif
