#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace platform {

/// Counts how often a device has run dry or full, and says so in the log: the first time, the
/// second, the fourth, and so on. One thread counts, any may read.
class XrunCounter {
public:
    /// `what` is what happens, "underrun" or "overrun".
    XrunCounter(std::string device, std::string what);

    void count();
    std::uint64_t total() const { return total_; }

private:
    const std::string device_;
    const std::string what_;
    std::atomic<std::uint64_t> total_{0};
};

}  // namespace platform
