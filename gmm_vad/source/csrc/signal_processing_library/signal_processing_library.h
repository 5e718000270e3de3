/* signal_processing_library.h - searches, division, energy and rate reduction on 16- and 32-bit integers.
 *
 * Additions and multiplications wrap in two's complement unless a routine says that it saturates. Nothing is
 * allocated; state and scratch are the caller's. Arrays of one call must not overlap unless said otherwise.
 * Threads: every routine may run concurrently on arrays of its own. Null arrays are not guarded against.
 */
#ifndef SIGNAL_PROCESSING_LIBRARY_H
#define SIGNAL_PROCESSING_LIBRARY_H

#include "vqns_api.h"

/* ---- Searches. A length of zero stops the program with an assertion in every build type. ---- */

/* Largest absolute value; 32768 is limited to 32767. */
VQNS_API int16_t TarvikSpl_MaxAbsValueW16C(const int16_t* v, size_t n);
/* Largest absolute value, not limited: -2147483648 comes back as itself, read it as unsigned. */
VQNS_API int32_t TarvikSpl_MaxAbsValueW32C(const int32_t* v, size_t n);
VQNS_API int16_t TarvikSpl_MaxValueW16C(const int16_t* v, size_t n);
VQNS_API int32_t TarvikSpl_MaxValueW32C(const int32_t* v, size_t n);
VQNS_API int16_t TarvikSpl_MinValueW16C(const int16_t* v, size_t n);
VQNS_API int32_t TarvikSpl_MinValueW32C(const int32_t* v, size_t n);

/* The same searches as variables that a host may call through. The library never changes them. */
VQNS_DATA int16_t (*TarvikSpl_MaxAbsValueW16)(const int16_t* v, size_t n);
VQNS_DATA int32_t (*TarvikSpl_MaxAbsValueW32)(const int32_t* v, size_t n);
VQNS_DATA int16_t (*TarvikSpl_MaxValueW16)(const int16_t* v, size_t n);
VQNS_DATA int32_t (*TarvikSpl_MaxValueW32)(const int32_t* v, size_t n);
VQNS_DATA int16_t (*TarvikSpl_MinValueW16)(const int16_t* v, size_t n);
VQNS_DATA int32_t (*TarvikSpl_MinValueW32)(const int32_t* v, size_t n);

/* ---- Division and energy ---- */

/* num / den, truncated toward zero; 2147483647 when den is 0. -2147483648 / -1 wraps to -2147483648. */
VQNS_API int32_t TarvikSpl_DivW32W16(int32_t num, int16_t den);

/* Right shifts to apply to each square so that a sum of `times` squares of these samples fits in 31 bits.
 * Samples of -32768 are not counted, so vectors that hold them may still wrap. */
VQNS_API int16_t TarvikSpl_GetScalingSquare(const int16_t* v, size_t n, int32_t times);

/* Sum of the squares, each shifted right by *scale, which is TarvikSpl_GetScalingSquare(v, n, n). */
VQNS_API int32_t TarvikSpl_Energy(const int16_t* v, size_t n, int32_t* scale);

/* Counts of leading zeros, 0 to 32, by a 6-bit hash; 255 marks unused entries. No routine here reads it. */
VQNS_DATA const uint8_t kTarvikSpl_CountLeadingZeros32_Table[64];

/* ---- 2:1 filters: half-band low-passes of two all-pass chains. State is zero at first. ---- */

/* 16-bit input to len / 2 32-bit outputs in Q15. Nothing is done when len < 2. */
VQNS_API void TarvikSpl_DownBy2ShortToInt(const int16_t* in, int32_t len, int32_t* out, int32_t* state8);

/* Q15 input to len / 2 saturated 16-bit outputs. The input is overwritten with the chains' outputs. Nothing
 * is done when len < 2. */
VQNS_API void TarvikSpl_DownBy2IntToShort(int32_t* in, int32_t len, int16_t* out, int32_t* state8);

/* Half-band low-pass without decimation: len Q15 inputs, len outputs in Q0, len even. */
VQNS_API void TarvikSpl_LPBy2IntToInt(const int32_t* in, int32_t len, int32_t* out, int32_t* state16);

/* ---- 48 kHz to 8 kHz ---- */

/* 3:2 interpolating FIR. Reads in[0] to in[3 * K + 5], writes 2 * K outputs in Q15 of the input's scale.
 * `out` may lie up to the start of `in`, that is overwrite inputs that have been used. */
VQNS_API void TarvikSpl_Resample48khzTo32khz(const int32_t* in, int32_t* out, size_t K);

/* Exactly 480 samples at 48 kHz to 80 samples at 8 kHz. state40: 40 words; scratch: 496 words, contents
 * irrelevant before and after. */
VQNS_API void TarvikSpl_Resample48khzTo8khz(const int16_t* in480, int16_t* out80, int32_t* state40,
                                            int32_t* scratch);

/* Zeroes the 40 words of state. */
VQNS_API void TarvikSpl_ResetResample48khzTo8khz(int32_t* state40);

#endif
