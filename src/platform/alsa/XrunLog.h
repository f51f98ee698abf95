#pragma once

#include <cstdint>
#include <string>

namespace platform {

/// Says in the log how often a device has run dry or full: after the first time, and whenever the
/// number has doubled. One thread.
class XrunLog {
public:
    /// `who` had it; `what` happens is "underrun" or "overrun".
    XrunLog(std::string who, std::string what);

    /// It has happened so often by now.
    void report(std::uint64_t total);

private:
    const std::string who_;
    const std::string what_;
    std::uint64_t reported_{0};
};

}  // namespace platform
