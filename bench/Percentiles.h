#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <string>
#include <vector>

/// Reports the distribution of single times as the counters PREFIX_p50, PREFIX_p99 and PREFIX_max,
/// in microseconds. Nothing when there are no times.
void reportPercentiles(benchmark::State& state, const std::string& prefix,
                       std::vector<std::chrono::duration<double, std::micro>> times);
