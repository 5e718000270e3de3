#ifndef FMA_PEAK_H
#define FMA_PEAK_H

/* Multiply-adds a second of one core, from a loop of 256-bit fused multiply-adds that touches registers
 * alone. Best of several runs; needs a processor with AVX2 and fused multiply-add. */
double measure_fma_peak();

#endif
