#include "modules/dirac/StandInSender.h"

#include "modules/dirac/CallLog.h"
#include "sdk/smt/Sender.h"

#include <cstring>
#include <stdexcept>

StandInSender& StandInSender::instance() {
    static StandInSender sender;
    return sender;
}

void StandInSender::reset() {
    const std::lock_guard lock(mutex_);
    state_ = State();
}

void StandInSender::failToOpen() {
    const std::lock_guard lock(mutex_);
    state_.opens = false;
}

void StandInSender::hold() {
    const std::lock_guard lock(mutex_);
    state_.holds = true;
}

void StandInSender::letThrough() {
    const std::lock_guard lock(mutex_);
    ++state_.mayPass;
    changed_.notify_all();
}

void StandInSender::letAllThrough() {
    const std::lock_guard lock(mutex_);
    state_.holds = false;
    changed_.notify_all();
}

void StandInSender::throwOn(const std::string& call) {
    const std::lock_guard lock(mutex_);
    state_.throwing.insert(call);
}

std::vector<std::vector<std::int32_t>> StandInSender::sent() const {
    const std::lock_guard lock(mutex_);
    return state_.sent;
}

std::size_t StandInSender::sends() const {
    const std::lock_guard lock(mutex_);
    return state_.sent.size();
}

bool StandInSender::isHolding() const {
    const std::lock_guard lock(mutex_);
    return state_.waiting > 0;
}

bool StandInSender::open() {
    const std::lock_guard lock(mutex_);
    return state_.opens;
}

void StandInSender::take(std::span<const std::byte> frames, const void* sender) {
    std::vector<std::int32_t> samples(frames.size() / sizeof(std::int32_t));
    std::memcpy(samples.data(), frames.data(), frames.size());
    std::unique_lock lock(mutex_);
    ++state_.waiting;
    changed_.wait(lock, [&] {
        return !state_.holds || state_.mayPass > 0 || state_.disabled.contains(sender);
    });
    --state_.waiting;
    if (state_.disabled.contains(sender))
        return;
    if (state_.holds)
        --state_.mayPass;
    state_.sent.push_back(std::move(samples));
}

void StandInSender::disable(bool disabled, const void* sender) {
    const std::lock_guard lock(mutex_);
    if (disabled)
        state_.disabled.insert(sender);
    else
        state_.disabled.erase(sender);
    changed_.notify_all();
}

void StandInSender::close(const void* sender) {
    const std::lock_guard lock(mutex_);
    state_.disabled.erase(sender);
}

void StandInSender::tell(const std::string& call) {
    CallLog::instance().add(call);
    const std::lock_guard lock(mutex_);
    if (state_.throwing.erase(call) > 0)
        throw std::runtime_error("The stand-in was told to fail");
}

// ---- In the place of the platform ----

namespace smt {

namespace {

StandInSender& standIn() {
    return StandInSender::instance();
}

}  // namespace

void PcmPayloader::setNewFormat(unsigned rate, unsigned channels, audioUtils::PcmFormat format) {
    rate_ = rate;
    channels_ = channels;
    format_ = format;
    standIn().tell("format " + std::to_string(rate) + " " + std::to_string(channels) + " " +
                   std::to_string(static_cast<int>(format)));
}

class Sender::Private {};

Sender::Sender() = default;

Sender::~Sender() {
    standIn().tell("close");
    standIn().close(this);
}

bool Sender::initializeSender(const std::string& socket, const std::string& remoteAddress,
                              const std::string& interface, unsigned remotePort,
                              TimeSyncProtocol timeSync, NanomsgProtocol protocol) {
    standIn().tell("open " + socket + remoteAddress + interface + " " + std::to_string(remotePort) +
                   " " + std::to_string(static_cast<int>(timeSync)) + " " +
                   std::to_string(static_cast<int>(protocol)));
    return standIn().open();
}

void Sender::setCurrentPayloader(PcmPayloader* /*payloader*/) {
}

void Sender::startNewSequence() {
    standIn().tell("sequence");
}

void Sender::sendMediaData(unsigned long /*time*/, unsigned long /*duration*/,
                           std::span<const std::byte> frames) {
    standIn().tell("send");
    standIn().take(frames, this);
}

void Sender::disableSend(bool disabled) {
    standIn().tell("disable");
    standIn().disable(disabled, this);
}

void Sender::shutdownSender() {
    standIn().tell("end");
}

}  // namespace smt
