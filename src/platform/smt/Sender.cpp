#include "sdk/smt/Sender.h"

#include "platform/Log.h"
#include "platform/WakeEvent.h"
#include "platform/smt/FlowControl.h"
#include "platform/smt/PairSocket.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <ratio>
#include <system_error>

namespace smt {

namespace {

using platform::logger;
using Clock = std::chrono::steady_clock;

constexpr unsigned kHighestPort = 65535;

/// How a stream reaches its player.
struct Route {
    std::string address;
    bool remote{false};
};

/// None, with a log line, when the arguments name no route.
std::optional<Route> routeTo(const std::string& socket, const std::string& remoteAddress,
                             const std::string& interface, unsigned remotePort) {
    if (remoteAddress.empty() && !socket.empty())
        return Route{localAddress(socket), false};
    if (!remoteAddress.empty() && remotePort > 0 && remotePort <= kHighestPort)
        return Route{"tcp://" + (interface.empty() ? "" : interface + ";") + remoteAddress + ":" +
                         std::to_string(remotePort),
                     true};
    LOG4CPLUS_ERROR(logger, "A media stream needs a socket, or a remote address and its port");
    return std::nullopt;
}

}  // namespace

class Sender::Private {
public:
    bool open(const Route& route);
    void setPayloader(PcmPayloader* payloader) { payloader_ = payloader; }
    void startNewSequence() { ++header_.sequence; }
    void send(std::uint64_t time, std::uint64_t duration, std::span<const std::byte> frames);
    void disable(bool disabled);
    void end();

private:
    /// False, with a log line, when `size` bytes cannot be sent as frames of the payloader.
    bool describe(std::size_t size);
    /// What is wrong with `size` bytes in the format of the header; empty: nothing.
    std::string dataFault(std::size_t size) const;
    std::size_t frameSize() const { return header_.channels * bytesPerSample(header_.format); }
    /// False: nobody takes the data of the header.
    bool deliver(std::span<const std::byte> frames);
    /// Lets the data of the header pass unheard.
    void drop();
    bool fits(std::uint64_t frames) const;
    bool transmit(MessageHeader header, std::span<const std::byte> payload);

    /// Waits for something that the player must do. False: it never will, or nobody waits any more.
    template <typename Condition>
    bool waitUntil(const Condition& condition);
    void waitForNews();
    bool trySend(const MessageHeader& header, std::span<const std::byte> payload = {});
    void announce();
    void takeMessages();
    void take(const MessageHeader& header);
    /// A stream that has begun is over with its player.
    void noticeLoss();
    /// Closes the stream, which also frees its name for another one.
    void giveUp(const std::string& why);

    // One thread.
    std::optional<PairSocket> socket_;  // none: the stream is not open
    std::string address_;
    PcmPayloader* payloader_{nullptr};
    MessageHeader header_;         // of the next data
    bool announced_{false};        // the player has been sent Open
    bool lacksRoom_{false};        // the last message could not be sent
    std::uint64_t sent_{0};        // frames
    std::uint64_t handedOver_{0};  // frames that have reached the device
    bool ended_{false};            // the player has taken everything
    bool closing_{false};          // End has been sent

    // Any thread.
    std::mutex disabling_;  // keeps flag and event together
    std::atomic<bool> disabled_{false};
    std::condition_variable disabledChanged_;
    Clock::time_point heard_;  // end of what was dropped last, had it been heard; by disabling_
    platform::WakeEvent disabledEvent_;
};

bool Sender::Private::open(const Route& route) {
    socket_.reset();
    try {
        socket_.emplace();
        route.remote ? socket_->connect(route.address) : socket_->bind(route.address);
    } catch (const std::system_error& error) {
        LOG4CPLUS_WARN(logger, "The media stream cannot be opened: " << error.what());
        socket_.reset();
        return false;
    }
    address_ = route.address;
    header_ = {};
    header_.stream = newIdentity();
    announced_ = lacksRoom_ = ended_ = closing_ = false;
    sent_ = handedOver_ = 0;
    announce();
    return true;
}

void Sender::Private::send(std::uint64_t time, std::uint64_t duration,
                           std::span<const std::byte> frames) {
    if (frames.empty() || !describe(frames.size()))
        return;
    header_.time = time;
    header_.duration = duration;
    if (!deliver(frames))
        return drop();
    sent_ += header_.frames;
    ++header_.number;
}

bool Sender::Private::deliver(std::span<const std::byte> frames) {
    if (!socket_ || closing_ || disabled_)
        return false;
    return waitUntil([this] { return header_.player != 0 && fits(header_.frames); }) &&
           transmit(header_, frames);
}

/// At the pace of the sound, or a caller that goes on for ever would occupy a processor.
void Sender::Private::drop() {
    const std::chrono::nanoseconds length(std::nano::den * header_.frames /
                                          std::uint64_t{header_.rate});
    std::unique_lock lock(disabling_);
    disabledChanged_.wait_until(lock, Clock::time_point(heard_),
                                [this] { return heard_ <= Clock::now(); });
    heard_ = Clock::now() + length;
}

bool Sender::Private::describe(std::size_t size) {
    if (!payloader_) {
        LOG4CPLUS_ERROR(logger, address_ << ": data without a payloader are not sent");
        return false;
    }
    header_.rate = payloader_->rate();
    header_.channels = payloader_->channels();
    header_.format = payloader_->format();
    if (const std::string fault = dataFault(size); !fault.empty()) {
        LOG4CPLUS_ERROR(logger, address_ << ": " << size << " bytes are not sent: " << fault);
        return false;
    }
    header_.kind = MessageKind::Data;
    header_.frames = size / frameSize();
    return true;
}

std::string Sender::Private::dataFault(std::size_t size) const {
    std::string fault = formatFault(header_.rate, header_.channels, header_.format);
    if (!fault.empty())
        return fault;
    if (size % frameSize() != 0)
        return "they are not whole frames";
    return size > kLargestMessage - sizeof header_ ? "they are too many" : "";
}

bool Sender::Private::fits(std::uint64_t frames) const {
    const std::uint64_t onTheWay = sent_ - handedOver_;
    const std::uint64_t most = std::uint64_t{header_.rate} * kMostBeforeDevice.count() /
                               std::chrono::milliseconds::period::den;
    return onTheWay == 0 || onTheWay + frames <= most;
}

bool Sender::Private::transmit(MessageHeader header, std::span<const std::byte> payload) {
    return waitUntil([&] { return trySend(header, payload); });
}

void Sender::Private::end() {
    if (!socket_ || closing_ || disabled_)
        return;
    closing_ = true;
    if (sent_ == 0)
        return;
    MessageHeader header = header_;
    header.kind = MessageKind::End;
    header.frames = sent_;
    if (transmit(header, {}))
        waitUntil([this] { return ended_; });
}

void Sender::Private::disable(bool disabled) {
    const std::lock_guard lock(disabling_);
    if (disabled_.exchange(disabled) == disabled)
        return;
    heard_ = {};  // whoever waits, or is about to, is free
    disabled ? disabledEvent_.signal() : disabledEvent_.clear();
    disabledChanged_.notify_all();
}

template <typename Condition>
bool Sender::Private::waitUntil(const Condition& condition) {
    const auto deadline = Clock::now() + kPlayerArrival;
    try {
        for (;;) {
            announce();
            takeMessages();
            noticeLoss();
            if (!socket_ || disabled_)
                return false;
            if (condition())
                return true;
            if (header_.player == 0 && Clock::now() >= deadline)
                giveUp("no player has come");
            else
                waitForNews();
        }
    } catch (const std::system_error& error) {
        giveUp(error.what());
        return false;
    }
}

void Sender::Private::waitForNews() {
    const std::array descriptors{disabledEvent_.descriptor(), socket_->receiveDescriptor(),
                                 lacksRoom_ ? socket_->sendDescriptor() : -1};
    platform::waitForInput(descriptors, kBetweenLooks);
}

bool Sender::Private::trySend(const MessageHeader& header, std::span<const std::byte> payload) {
    const bool sent = socket_->trySend(header, payload);
    lacksRoom_ = !sent;
    return sent;
}

void Sender::Private::announce() {
    if (!socket_ || announced_)
        return;
    MessageHeader header = header_;
    header.kind = MessageKind::Open;
    announced_ = trySend(header);
}

void Sender::Private::takeMessages() {
    while (socket_) {
        const auto bytes = socket_->tryReceive();
        if (!bytes)
            return;
        try {
            take(parseMessage(bytes->bytes()).header);
        } catch (const MalformedMessage& error) {
            LOG4CPLUS_WARN(logger,
                           address_ << ": a message of the player is dropped: " << error.what());
        }
    }
}

void Sender::Private::take(const MessageHeader& header) {
    if (header.kind == MessageKind::Ready) {
        if (header_.player == 0 || sent_ == 0)
            header_.player = header.player;
        else if (header_.player != header.player)
            giveUp("another player has taken the place of its own");
        return;
    }
    if (header.stream != header_.stream || header.player != header_.player)
        return;
    if (header.kind == MessageKind::Credit && header.frames <= sent_)
        handedOver_ = std::max(handedOver_, header.frames);
    if (header.kind == MessageKind::Ended)
        ended_ = true;
}

void Sender::Private::noticeLoss() {
    if (!socket_ || header_.player == 0 || socket_->hasPeer())
        return;
    if (sent_ > 0)
        return giveUp("its player is gone");
    // One that was just leaving: the next may still come.
    header_.player = 0;
    announced_ = false;
}

void Sender::Private::giveUp(const std::string& why) {
    LOG4CPLUS_WARN(logger, address_ << ": the stream is given up: " << why);
    socket_.reset();
}

Sender::Sender() : private_(std::make_unique<Private>()) {
}

Sender::~Sender() = default;

bool Sender::initializeSender(const std::string& socket, const std::string& remoteAddress,
                              const std::string& interface, unsigned remotePort,
                              TimeSyncProtocol timeSync, NanomsgProtocol protocol) {
    if (timeSync != TimeSyncProtocol::None || protocol != NanomsgProtocol::Pair) {
        LOG4CPLUS_ERROR(logger, socket << ": a stream can only be a pair without shared time");
        return false;
    }
    const auto route = routeTo(socket, remoteAddress, interface, remotePort);
    return route && private_->open(*route);
}

void Sender::setCurrentPayloader(PcmPayloader* payloader) {
    private_->setPayloader(payloader);
}

void Sender::startNewSequence() {
    private_->startNewSequence();
}

void Sender::sendMediaData(unsigned long time, unsigned long duration,
                           std::span<const std::byte> frames) {
    private_->send(time, duration, frames);
}

void Sender::disableSend(bool disabled) {
    private_->disable(disabled);
}

void Sender::shutdownSender() {
    private_->end();
}

}  // namespace smt
