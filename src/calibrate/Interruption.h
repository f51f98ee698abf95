#pragma once

#include <atomic>
#include <csignal>
#include <stop_token>
#include <thread>

namespace calibrate {

/// Turns Ctrl-C (SIGINT), SIGTERM and the end of the terminal (SIGHUP, unless that is ignored) into
/// a stop request for as long as it lives. A second signal ends the process at once, with exit code
/// 128 + signal. Writing to a pipe that nobody reads fails meanwhile instead of ending the process.
///
/// Make it before the first other thread: threads inherit the blocked signals from their maker.
class Interruption {
public:
    /// Throws std::system_error when the kernel has no descriptor left.
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    std::stop_token token() const { return source_.get_token(); }

    /// The signal that came; 0: none.
    int signal() const { return signal_; }

private:
    void watch();

    sigset_t previousMask_{};
    int signalDescriptor_;
    int endDescriptor_;  // readable when the object dies
    std::stop_source source_;
    std::atomic<int> signal_{0};
    std::thread watcher_;
};

}  // namespace calibrate
