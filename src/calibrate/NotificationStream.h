#pragma once

#include "calibrate/EndpointClient.h"

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

namespace calibrate {

/// The presence of a calibration client at a device: as long as the object lives no other client
/// can take its place, and the device tells what changes on its side. Coming stops the device's
/// player. Must not outlive the client.
class NotificationStream {
public:
    using Kinds = std::vector<protocol::NotificationKind>;

    /// Returns when the device has greeted.
    /// Throws DeviceError, with Reason::occupied when another client is there.
    explicit NotificationStream(EndpointClient& client);

    /// What has changed since the last call, each kind once, a kind that the protocol does not know
    /// as NOTIFICATION_KIND_UNSPECIFIED; empty when nothing came within `patience`.
    /// Throws DeviceError when the device has ended the stream, Interrupted once the client's stop
    /// was requested. A device that vanished without a word is not noticed here: make a call.
    Kinds wait(std::chrono::milliseconds patience);

private:
    /// The kinds of the next message; nothing when none came within `patience`.
    std::optional<Kinds> next(std::chrono::milliseconds patience);

    const std::unique_ptr<EndpointStream<protocol::NotificationInfo>> stream_;
};

}  // namespace calibrate
