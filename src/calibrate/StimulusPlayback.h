#pragma once

#include "calibrate/EndpointClient.h"
#include "calibrate/Stimulus.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

namespace calibrate {

/// A stimulus that a device plays while the client only listens to its progress. The sound ends
/// with the object, whose destructor waits until the device is quiet. Gains are the caller's
/// concern (StimulusGains).
class StimulusPlayback {
public:
    using Seconds = std::chrono::duration<double>;

    /// How far the device is.
    struct Position {
        double percent{0};       ///< of one pass through the speakers; above 100: the passes before
        std::size_t speaker{0};  ///< the one that plays, in the stimulus' own order
        Seconds elapsed{0};      ///< since the beginning
    };

    /// Prepares the stimulus and has it started. Must not outlive the client.
    /// Throws as EndpointClient does.
    StimulusPlayback(EndpointClient& client, Stimulus stimulus);

    /// Returns when the device has played all, or when it has played for `duration`. `progress` is
    /// called in this thread with each position that the device reports, which never goes back.
    /// Throws DeviceError when the device refuses, falls silent, or ends before the whole stimulus
    /// was played; Interrupted once the client's stop was requested.
    void play(std::optional<Seconds> duration, const std::function<void(Position)>& progress);

private:
    using Clock = std::chrono::steady_clock;
    using Event = EndpointStream<protocol::Progress>::Event;

    Event next(std::chrono::milliseconds patience);
    Position position() const;
    bool isOver(std::optional<Seconds> duration) const;
    std::chrono::milliseconds patience() const;
    std::chrono::milliseconds waitingTime(std::optional<Seconds> duration) const;
    void checkComplete() const;

    const Stimulus stimulus_;
    const std::chrono::milliseconds timeout_;
    const std::unique_ptr<EndpointStream<protocol::Progress>> stream_;
    std::optional<Clock::time_point> begin_;  // of the sound; none: not yet
    double percent_{0};
};

}  // namespace calibrate
