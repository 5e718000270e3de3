#include "fma_peak.h"

#include <immintrin.h>

#include <algorithm>
#include <chrono>

double measure_fma_peak() {
    constexpr int kChains = 12, kSteps = 20000, kRuns = 300;
    __m256 chain[kChains], factor = _mm256_set1_ps(0.999f), term = _mm256_set1_ps(0.001f);
    /* The empty statements hide the values: chains known to be equal would be computed once. */
    for (__m256& c : chain) {
        c = _mm256_set1_ps(1.0f);
        asm volatile("" : "+x"(c));
    }
    asm volatile("" : "+x"(factor), "+x"(term));
    double best = 0;
    for (int run = 0; run < kRuns; ++run) {
        const auto start = std::chrono::steady_clock::now();
        for (int step = 0; step < kSteps; ++step) {
            for (__m256& c : chain) c = _mm256_fmadd_ps(c, factor, term);
        }
        for (__m256& c : chain) asm volatile("" : "+x"(c));
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
        best = std::max(best, 8.0 * kChains * kSteps / seconds.count());
    }
    return best;
}
