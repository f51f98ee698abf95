#include "calibrate/NotificationStream.h"

#include "calibrate/Errors.h"
#include "calibrate/Text.h"

#include <algorithm>

namespace calibrate {
namespace {

using Kinds = NotificationStream::Kinds;

/// The kinds of a message, each once, so that a message of any length is a short list.
Kinds distinctKinds(const protocol::NotificationInfo& message) {
    Kinds kinds;
    for (const int value : message.kinds()) {
        const auto kind = protocol::NotificationKind_IsValid(value)
                              ? static_cast<protocol::NotificationKind>(value)
                              : protocol::NOTIFICATION_KIND_UNSPECIFIED;
        if (std::find(kinds.begin(), kinds.end(), kind) == kinds.end())
            kinds.push_back(kind);
    }
    return kinds;
}

using Event = EndpointStream<protocol::NotificationInfo>::Event;

[[noreturn]] void failEnded() {
    throw DeviceError(DeviceError::Reason::unreachable,
                      "Notifications: the device ended them: it shuts down, or starts its "
                      "calibration server anew");
}

[[noreturn]] void explainRefusal(const DeviceError& error) {
    const bool occupied = error.reason() == DeviceError::Reason::occupied;
    throw DeviceError(
        error.reason(),
        error.what() + std::string(occupied ? ": another calibration client works with this "
                                              "device; end it first"
                                            : ""));
}

}  // namespace

NotificationStream::NotificationStream(EndpointClient& client) : stream_(client.notifications()) {
    try {
        if (!next(client.timeout())) {
            throw DeviceError(
                DeviceError::Reason::timeout,
                "Notifications: the device did not greet within " + secondsText(client.timeout()));
        }
    } catch (const DeviceError& error) {
        explainRefusal(error);
    }
}

Kinds NotificationStream::wait(std::chrono::milliseconds patience) {
    return next(patience).value_or(Kinds());
}

std::optional<Kinds> NotificationStream::next(std::chrono::milliseconds patience) {
    protocol::NotificationInfo message;
    const auto event = stream_->read(message, patience);
    if (event == Event::end)
        failEnded();
    return event == Event::message ? std::optional(distinctKinds(message)) : std::nullopt;
}

}  // namespace calibrate
