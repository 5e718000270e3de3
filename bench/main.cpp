#include <xmmintrin.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "bench.h"
#include "fma_peak.h"
#include "vq_ns_kernels.h"

std::vector<int32_t> levels() {
    std::vector<int32_t> all = {VQ_NS_LEVEL_GENERIC};
    if (__builtin_cpu_supports("avx")) all.push_back(VQ_NS_LEVEL_AVX);
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma")) all.push_back(VQ_NS_LEVEL_AVX2);
    return all;
}

const char* level_name(int32_t level) {
    return level == VQ_NS_LEVEL_AVX2 ? "avx2" : level == VQ_NS_LEVEL_AVX ? "avx" : "generic";
}

benchmark::internal::Benchmark* shortest(benchmark::internal::Benchmark* b) {
    const auto least = [](const std::vector<double>& v) { return *std::min_element(v.begin(), v.end()); };
    return b->Repetitions(20)->MinTime(0.01)->ReportAggregatesOnly()->ComputeStatistics("least", least);
}

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    if (levels().back() == VQ_NS_LEVEL_AVX2) {
        benchmark::AddCustomContext("fma_peak", std::to_string(measure_fma_peak()));
    }
    benchmark::AddCustomContext("compiler", __VERSION__);
    /* As in the engine: kernels that are run again on their own results would otherwise meet denormals. */
    _mm_setcsr(_mm_getcsr() | 0x8040);
    register_kernel_benchmarks();
    register_engine_benchmarks();
    register_voice_benchmarks();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
