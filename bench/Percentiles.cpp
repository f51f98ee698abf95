#include "Percentiles.h"

#include <algorithm>

void reportPercentiles(benchmark::State& state, const std::string& prefix,
                       std::vector<Microseconds> times) {
    if (times.empty())
        return;
    std::sort(times.begin(), times.end());
    const auto at = [&](std::size_t percent) {
        return times[std::min(times.size() * percent / 100, times.size() - 1)].count();
    };
    state.counters[prefix + "_p50"] = at(50);
    state.counters[prefix + "_p99"] = at(99);
    state.counters[prefix + "_max"] = times.back().count();
}
