#pragma once

#include "platform/endpoint/LocalSocket.h"

#include <atomic>
#include <thread>

/// A TCP connection to a local port, through a cable that can be unplugged: both ends stay open and
/// nothing passes any more.
class FreezableRelay {
public:
    /// Relays the first connection to port() to `target`.
    explicit FreezableRelay(unsigned short target);
    ~FreezableRelay();
    FreezableRelay(const FreezableRelay&) = delete;
    FreezableRelay& operator=(const FreezableRelay&) = delete;

    unsigned short port() const { return listener_.port(); }
    void freeze() { frozen_ = true; }

private:
    void run(unsigned short target);

    LocalSocket listener_;
    std::atomic<bool> frozen_{false};
    std::atomic<bool> ended_{false};
    std::thread thread_;
};
