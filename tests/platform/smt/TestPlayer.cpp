#include "platform/smt/TestPlayer.h"

#include "platform/WakeEvent.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <limits>

TestPlayer::TestPlayer(const std::string& address, smt::Receiver::Place place)
    : receiver_(address, place), thread_([this] { run(); }) {
}

TestPlayer::~TestPlayer() {
    {
        const std::lock_guard lock(mutex_);
        leaving_ = true;
    }
    thread_.join();
}

void TestPlayer::handOver(std::uint64_t frames) {
    const std::lock_guard lock(mutex_);
    allowed_ += frames;
}

void TestPlayer::handOverEverything() {
    const std::lock_guard lock(mutex_);
    allowed_ = std::numeric_limits<std::uint64_t>::max();
}

std::uint64_t TestPlayer::received() const {
    const std::lock_guard lock(mutex_);
    return received_;
}

std::uint64_t TestPlayer::mostOnTheWay() const {
    const std::lock_guard lock(mutex_);
    return mostOnTheWay_;
}

std::vector<std::byte> TestPlayer::bytes() const {
    const std::lock_guard lock(mutex_);
    return bytes_;
}

std::vector<smt::MessageHeader> TestPlayer::headers() const {
    const std::lock_guard lock(mutex_);
    return headers_;
}

bool TestPlayer::sawEnd() const {
    const std::lock_guard lock(mutex_);
    return end_;
}

bool TestPlayer::sawSenderGone() const {
    const std::lock_guard lock(mutex_);
    return senderGone_;
}

void TestPlayer::run() {
    for (;;) {
        {
            const std::lock_guard lock(mutex_);
            if (leaving_)
                return;
            step();
        }
        const std::array descriptors{receiver_.descriptor()};
        platform::waitForInput(descriptors, std::chrono::milliseconds(1));
    }
}

void TestPlayer::step() {
    const smt::Receiver::Event event = receiver_.next();
    if (event == smt::Receiver::Event::Data) {
        const smt::Message& message = receiver_.data();
        received_ += message.header.frames;
        bytes_.insert(bytes_.end(), message.payload.begin(), message.payload.end());
        headers_.push_back(message.header);
    }
    end_ = end_ || event == smt::Receiver::Event::End;
    senderGone_ = senderGone_ || event == smt::Receiver::Event::SenderGone;
    mostOnTheWay_ = std::max(mostOnTheWay_, received_ - handedOver_);
    handedOver_ = std::min(received_, allowed_);
    receiver_.report(handedOver_);
    if (end_ && !acknowledged_ && handedOver_ == received_)
        acknowledged_ = receiver_.acknowledgeEnd();
}
