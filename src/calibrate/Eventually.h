#pragma once

#include <chrono>
#include <thread>

namespace calibrate {

/// Whether `condition` becomes true within a second. A device may need a moment to show what it was
/// told.
template <class Condition>
bool eventually(Condition condition) {
    constexpr auto kPause = std::chrono::milliseconds(20);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(kPause);
    }
    return true;
}

}  // namespace calibrate
