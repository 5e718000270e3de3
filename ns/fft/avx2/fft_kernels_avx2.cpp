#define LEVEL(name) name##_avx2
#include "fft_kernels_vector.inc"
