#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <string>
#include <vector>

using Microseconds = std::chrono::duration<double, std::micro>;

/// Reports the distribution of single times as the counters PREFIX_p50, PREFIX_p99 and PREFIX_max,
/// in microseconds. Nothing when there are no times.
void reportPercentiles(benchmark::State& state, const std::string& prefix,
                       std::vector<Microseconds> times);

/// Runs the device's work and the floor's in turn, so that both see the same load of the machine,
/// and reports the distributions of the times that they return as "device" and "floor". The
/// benchmark must use manual time, which is the device's.
template <typename Device, typename Floor>
void compare(benchmark::State& state, Device device, Floor floor) {
    std::vector<Microseconds> deviceTimes;
    std::vector<Microseconds> floorTimes;
    while (state.KeepRunning()) {
        // Neither always follows the other.
        const bool floorFirst = floorTimes.size() % 2 == 1;
        if (floorFirst)
            floorTimes.push_back(floor());
        deviceTimes.push_back(device());
        if (!floorFirst)
            floorTimes.push_back(floor());
        state.SetIterationTime(deviceTimes.back().count() / 1e6);
    }
    reportPercentiles(state, "device", std::move(deviceTimes));
    reportPercentiles(state, "floor", std::move(floorTimes));
}

/// How long `work` takes.
template <typename Work>
Microseconds timed(const Work& work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::steady_clock::now() - begin;
}
