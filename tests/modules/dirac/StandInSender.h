#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <set>
#include <span>
#include <string>
#include <vector>

/// Takes the place of the platform's media transport, in programs that link StandInSender.cpp. It
/// takes everything at once, from all senders. Any thread.
///
/// Each call is also told to CallLog: "open SOCKET PORT SYNC PROTOCOL", "format RATE CHANNELS
/// CODE", "sequence", "send", "disable", "end", "close".
class StandInSender {
public:
    static StandInSender& instance();
    void reset();

    // ---- What it does ----

    void failToOpen();
    /// From now on a send waits until it is let through, or sending is disabled.
    void hold();
    /// Lets one send through, which may come later.
    void letThrough();
    void letAllThrough();
    /// The next call of this name throws.
    void throwOn(const std::string& call);

    // ---- What it was given ----

    /// All samples of each send, interleaved.
    std::vector<std::vector<std::int32_t>> sent() const;
    std::size_t sends() const;
    bool isHolding() const;

    // ---- For the stand-in of the sender ----

    bool open();
    void take(std::span<const std::byte> frames, const void* sender);
    void disable(bool disabled, const void* sender);
    void close(const void* sender);
    void tell(const std::string& call);

private:
    struct State {
        bool opens{true};
        bool holds{false};
        int mayPass{0};
        int waiting{0};
        std::set<const void*> disabled;
        std::set<std::string> throwing;
        std::vector<std::vector<std::int32_t>> sent;
    };

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    State state_;  // guarded by mutex_
};
