#pragma once

#include <chrono>
#include <thread>

/// Looks again and again until `condition` holds. False: the time ran out.
template <typename Condition>
bool eventually(const Condition& condition,
                std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}
