#pragma once

#include <chrono>
#include <span>

namespace platform {

/// Wakes a thread that waits in poll(): an eventfd. signal() may be called from any thread.
class WakeEvent {
public:
    /// Throws std::system_error when the process has no descriptor left.
    WakeEvent();
    ~WakeEvent();
    WakeEvent(const WakeEvent&) = delete;
    WakeEvent& operator=(const WakeEvent&) = delete;

    /// The descriptor is readable from now on, until clear().
    void signal();
    void clear();

    bool isSignalled() const;

    int descriptor() const { return descriptor_; }

private:
    const int descriptor_;
};

/// Waits until one of the descriptors, 8 at most, is readable, at most so long. Those below 0 are
/// left out.
void waitForInput(std::span<const int> descriptors, std::chrono::milliseconds timeout);

}  // namespace platform
