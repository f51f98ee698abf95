#pragma once

#include "roomsim/FileDescriptor.h"

#include <cstdint>

namespace roomsim {

/// The file descriptor that an application polls for a stream: readable from a moment on, or when
/// the other stream calls. One thread at a time; polling needs no lock.
class Wakeup {
public:
    /// `callFd`: a non-blocking pipe that the other stream writes to; it outlives this object.
    explicit Wakeup(int callFd);

    [[nodiscard]] int fd() const { return epoll_.get(); }

    /// Readable from the machine's time `wall` (ns) on. Calls that came before are forgotten.
    void at(std::int64_t wall);
    void immediately() { at(1); }
    void onlyWhenCalled() { at(0); }

private:
    int callFd_;
    FileDescriptor epoll_;
    FileDescriptor timer_;
    std::int64_t armed_ = 0;
};

}  // namespace roomsim
