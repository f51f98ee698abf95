#pragma once

#include "platform/smt/Receiver.h"

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// The player's end of a stream, in a thread of its own: it hands over as many frames as it is
/// told to.
class TestPlayer {
public:
    explicit TestPlayer(const std::string& address,
                        smt::Receiver::Place place = smt::Receiver::Place::Connect);
    /// The player is gone.
    ~TestPlayer();
    TestPlayer(const TestPlayer&) = delete;
    TestPlayer& operator=(const TestPlayer&) = delete;

    void handOver(std::uint64_t frames);
    void handOverEverything();

    std::uint64_t received() const;        ///< frames
    std::uint64_t mostOnTheWay() const;    ///< frames that were received and not handed over
    std::vector<std::byte> bytes() const;  ///< all payloads
    std::vector<smt::MessageHeader> headers() const;
    bool sawEnd() const;
    bool sawSenderGone() const;

private:
    void run();
    void step();

    smt::Receiver receiver_;
    mutable std::mutex mutex_;
    std::uint64_t allowed_{0};
    std::uint64_t received_{0};
    std::uint64_t handedOver_{0};
    std::uint64_t mostOnTheWay_{0};
    std::vector<std::byte> bytes_;
    std::vector<smt::MessageHeader> headers_;
    bool end_{false};
    bool acknowledged_{false};
    bool senderGone_{false};
    bool leaving_{false};
    std::thread thread_;
};
