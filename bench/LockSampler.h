#pragma once

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

/// Watches a System V lock from outside and measures how long it is held each time, by asking for
/// the semaphore's value over and over (a few hundred nanoseconds a time). Occupies one processor.
class LockSampler {
public:
    using Duration = std::chrono::duration<double, std::micro>;

    /// Throws std::system_error when no semaphore has the key.
    explicit LockSampler(int key);
    ~LockSampler();
    LockSampler(const LockSampler&) = delete;
    LockSampler& operator=(const LockSampler&) = delete;

    /// Ends the watch. The times, in order; each is short by up to one interval between samples.
    std::vector<Duration> finish();

private:
    void watch();

    const int id_;
    std::atomic<bool> running_{true};
    std::vector<Duration> holds_;  // the thread's until it has ended
    std::thread thread_;
};
