#pragma once

#include "platform/smt/PairSocket.h"

#include <cstdint>
#include <string>

namespace smt {

/// The player's end of a media stream: takes one stream from its beginning to its end. It plays as
/// data come; the times that they carry are not used. One thread; no operation waits.
class Receiver {
public:
    enum class Event {
        None,
        Data,        ///< data() has frames
        End,         ///< no data follow; the sender waits for acknowledgeEnd()
        SenderGone,  ///< the sender is gone, or sends another stream; nothing follows
    };

    /// Waits at `address` for a sender, which may come later.
    enum class Place { Connect, Bind };
    /// Throws std::system_error.
    explicit Receiver(const std::string& address, Place place = Place::Connect);

    /// What happens next. Malformed messages are logged and left out.
    Event next();

    /// The message of the last event, until the next one.
    const Message& data() const { return message_; }

    /// Tells the sender how many frames, since the beginning, have reached the device.
    void report(std::uint64_t handedOver);

    /// Tells the sender that everything has. False: try again later.
    bool acknowledgeEnd();

    /// Readable when next() has something. Besides, call it every kBetweenLooks.
    int descriptor() const { return socket_.receiveDescriptor(); }

private:
    void announce();
    Event take(const Message& message);
    Event takeData(const Message& message);
    bool tell(MessageKind kind, std::uint64_t frames);

    PairSocket socket_;
    const std::uint64_t identity_{newIdentity()};
    bool announced_{false};
    std::uint64_t stream_{0};  // 0: none yet
    std::uint64_t nextNumber_{0};
    std::uint64_t received_{0};  // frames
    std::uint64_t reported_{0};  // frames
    std::uint32_t rate_{0};      // Hz
    ReceivedBytes bytes_;        // of message_
    Message message_;
};

}  // namespace smt
