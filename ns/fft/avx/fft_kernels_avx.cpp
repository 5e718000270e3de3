#define LEVEL(name) name##_avx
#include "fft_kernels_vector.inc"
