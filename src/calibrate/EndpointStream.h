#pragma once

#include <chrono>

namespace calibrate {

/// The messages that a device sends in one long call. The call is open for as long as the object
/// lives; its end cancels a call that still runs. Must not outlive the EndpointClient that made it.
///
/// Nothing is read ahead: a reader that is slow slows the device down, and memory stays bounded.
/// One thread at a time, which may be another one than the client's.
template <class Message>
class EndpointStream {
public:
    enum class Event {
        message,  ///< `message` was filled
        end,      ///< the device ended the call in order
        silence   ///< nothing came within `patience`; the call stays open
    };

    EndpointStream(const EndpointStream&) = delete;
    EndpointStream& operator=(const EndpointStream&) = delete;
    virtual ~EndpointStream() = default;

    /// Throws DeviceError when the call failed, Interrupted once the client's stop was requested.
    virtual Event read(Message& message, std::chrono::milliseconds patience) = 0;

protected:
    EndpointStream() = default;
};

}  // namespace calibrate
