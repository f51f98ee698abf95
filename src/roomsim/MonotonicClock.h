#pragma once

#include <cstdint>
#include <ctime>

namespace roomsim {

/// The machine's monotonic clock in ns; the same in all processes.
inline std::int64_t monotonicNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

}  // namespace roomsim
