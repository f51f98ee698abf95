#include "platform/smt/Receiver.h"

#include "platform/Log.h"

namespace smt {

using platform::logger;

namespace {

constexpr std::uint32_t kReportsPerSecond = 100;

}  // namespace

Receiver::Receiver(const std::string& address, Place place) {
    place == Place::Bind ? socket_.bind(address) : socket_.connect(address);
    announce();
}

Receiver::Event Receiver::next() {
    announce();
    while (auto bytes = socket_.tryReceive()) {
        bytes_ = std::move(*bytes);
        try {
            message_ = parseMessage(bytes_.bytes());
            if (const Event event = take(message_); event != Event::None)
                return event;
        } catch (const MalformedMessage& error) {
            LOG4CPLUS_WARN(logger, "A media message is dropped: " << error.what());
        }
    }
    return stream_ != 0 && !socket_.hasPeer() ? Event::SenderGone : Event::None;
}

Receiver::Event Receiver::take(const Message& message) {
    const MessageHeader& header = message.header;
    if (header.kind == MessageKind::Open) {
        if (stream_ != 0 && stream_ != header.stream)
            return Event::SenderGone;
        stream_ = header.stream;
        announced_ = tell(MessageKind::Ready, 0);
        return Event::None;
    }
    if (header.player != identity_)
        return Event::None;
    if (stream_ == 0)
        stream_ = header.stream;  // its Open went to the player before this one
    if (header.stream != stream_)
        return Event::None;
    if (header.kind == MessageKind::Data)
        return takeData(message);
    return header.kind == MessageKind::End ? Event::End : Event::None;
}

Receiver::Event Receiver::takeData(const Message& message) {
    const MessageHeader& header = message.header;
    if (header.number != nextNumber_)
        LOG4CPLUS_WARN(logger, "Media messages are lost: number " << header.number << " follows "
                                                                  << nextNumber_);
    nextNumber_ = header.number + 1;
    received_ += header.frames;
    rate_ = header.rate;
    return Event::Data;
}

/// Reports in steps, and at once when nothing is left: a sender may wait for just that.
void Receiver::report(std::uint64_t handedOver) {
    if (handedOver == reported_)
        return;
    const bool isStep = handedOver >= reported_ + rate_ / kReportsPerSecond;
    if ((isStep || handedOver == received_) && tell(MessageKind::Credit, handedOver))
        reported_ = handedOver;
}

bool Receiver::acknowledgeEnd() {
    return tell(MessageKind::Ended, received_);
}

void Receiver::announce() {
    if (!announced_)
        announced_ = tell(MessageKind::Ready, 0);
}

bool Receiver::tell(MessageKind kind, std::uint64_t frames) {
    MessageHeader header;
    header.kind = kind;
    header.stream = stream_;
    header.player = identity_;
    header.frames = frames;
    return socket_.trySend(header);
}

}  // namespace smt
