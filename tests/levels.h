#ifndef LEVELS_H
#define LEVELS_H

#include <vector>

#include "vq_ns_kernels.h"

/* The kernel levels that this processor can run. */
inline std::vector<int32_t> levels() {
    std::vector<int32_t> all = {VQ_NS_LEVEL_GENERIC, VQ_NS_LEVEL_AVX};
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) all.push_back(VQ_NS_LEVEL_AVX2);
    return all;
}

#endif
