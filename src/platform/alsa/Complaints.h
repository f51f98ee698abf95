#pragma once

#include <string>

namespace platform {

/// Keeps what alsa-lib has to say about failures in this thread for as long as it exists; alsa-lib
/// would print it. At most one at a time in a thread.
class Complaints {
public:
    Complaints();
    ~Complaints();
    Complaints(const Complaints&) = delete;
    Complaints& operator=(const Complaints&) = delete;

    /// The first complaint since the thread's object began, which is the closest to the cause, in
    /// brackets after a blank; empty when there was none, and when no object exists.
    static std::string shown();
};

}  // namespace platform
