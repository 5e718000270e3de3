#ifndef BENCH_H
#define BENCH_H

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <vector>

/* Levels that this processor has. */
std::vector<int32_t> levels();
const char* level_name(int32_t level);

/* Registers a benchmark whose time is the shortest of its repetitions: other load on the machine only ever
 * adds. */
benchmark::internal::Benchmark* shortest(benchmark::internal::Benchmark* b);

void register_kernel_benchmarks();
void register_engine_benchmarks();
void register_voice_benchmarks();

#endif
