#pragma once

#include <sys/types.h>

#include <chrono>
#include <ctime>

/// How much processor time another process needs, in all its threads, those included that have
/// ended.
class ProcessorTime {
public:
    /// Throws std::system_error when there is no such process.
    explicit ProcessorTime(pid_t process);

    /// Begins a measurement.
    void begin();
    /// Since begin(), as a part of one processor.
    double load() const;

private:
    using Clock = std::chrono::steady_clock;

    std::chrono::nanoseconds total() const;

    clockid_t clock_{};
    std::chrono::nanoseconds totalAtBegin_{};
    Clock::time_point begin_;
};
