#include "roomsim/Stream.h"

#include "roomsim/ImpulseResponses.h"
#include "roomsim/MonotonicClock.h"

#include <algorithm>
#include <cmath>

namespace roomsim {
namespace {

// In lock step: how soon a stream notices that the other one has died.
constexpr std::int64_t kSignOfLifeInterval = 50'000'000;  // ns

// Some programs ask for as many frames as never come; their time can still be computed.
constexpr std::int64_t kNeverAvailable = std::int64_t{1} << 40;  // frames

}  // namespace

Stream::Stream(const RoomDescription& description, Role role, double driftPpm,
               std::optional<double> unpluggedAfter)
    : room_(description, role, longestResponse(description)),
      role_(role),
      driftPpm_(driftPpm),
      lockStep_(room_.access()->lockStep),
      wakeup_(room_.wakeFd()) {
    if (unpluggedAfter)
        unpluggedAfter_ = std::llround(*unpluggedAfter * static_cast<double>(kFlicksPerSecond));
}

void Stream::configure(unsigned int rate, std::int64_t bufferFrames) {
    const std::lock_guard guard(mutex_);
    update([this](const RoomMemory::Access& room) { end(room); });
    rate_ = rate;
    bufferFrames_ = bufferFrames;
    stopThreshold_ = bufferFrames;
    configured();
}

void Stream::setThresholds(std::int64_t availableMinimum, std::int64_t stopThreshold) {
    const std::lock_guard guard(mutex_);
    availableMinimum_ = std::min(availableMinimum, kNeverAvailable);
    stopThreshold_ = stopThreshold;
    update();
}

void Stream::prepare() {
    const std::lock_guard guard(mutex_);
    update([this](const RoomMemory::Access& room) {
        end(room);
        state_ = State::kPrepared;
        applied_ = 0;
        draining_ = false;
        position_ = 0;
    });
}

void Stream::start() {
    const std::lock_guard guard(mutex_);
    update([this](const RoomMemory::Access& room) {
        clock_.emplace(rate_, driftPpm_, room->now);
        state_ = State::kRunning;
        StreamState& own = room->of(role_);
        own.start = clock_->start();
        ++own.starts;
        started(room);
    });
}

void Stream::stop() {
    const std::lock_guard guard(mutex_);
    update([this](const RoomMemory::Access& room) { end(room); });
}

Stream::Position Stream::position(std::int64_t applied, bool draining) {
    const std::lock_guard guard(mutex_);
    applied_ = applied;
    draining_ = draining;
    update();
    return {progress_, position_};
}

Stream::Readiness Stream::readiness() {
    const std::lock_guard guard(mutex_);
    update();
    if (!isReady() && forgetDeadPeer())
        update();
    if (isReady())
        return state_ == State::kIdle ? Readiness::kStopped : Readiness::kReady;
    return Readiness::kWaiting;
}

Flicks Stream::startTime() {
    const std::lock_guard guard(mutex_);
    return clock_ ? clock_->start() : 0;
}

void Stream::update() {
    update([](const RoomMemory::Access&) {});
}

void Stream::update(const std::function<void(const RoomMemory::Access& room)>& action) {
    bool peerCanGoOn = false;
    {
        const auto room = room_.access();
        catchUp(*room);
        action(room);
        catchUp(*room);
        arm(*room);
        peerCanGoOn = room->takeWaiter(peerOf(role_));
    }
    if (peerCanGoOn)
        room_.wakePeer();
}

void Stream::end(const RoomMemory::Access& room) {
    if (state_ == State::kRunning)
        stopped(room);
    state_ = State::kIdle;
    progress_ = Progress::kMoving;
}

void Stream::catchUp(RoomState& room) {
    publish(room);
    room.advance(monotonicNow());
    now_ = room.now;
    follow();
    room.of(role_).running = state_ == State::kRunning;
}

/// Sees how far the stream has come.
void Stream::follow() {
    if (state_ != State::kRunning)
        return;
    position_ = clock_->framesAt(now_);
    if (draining_)
        position_ = std::min(position_, applied_);
    if (unpluggedAfter_ && now_ - clock_->start() >= *unpluggedAfter_) {
        position_ = clock_->framesAt(clock_->start() + *unpluggedAfter_);
        halt(Progress::kUnplugged);
    } else if (!lockStep_ && !draining_ && available() >= stopThreshold_) {
        halt(Progress::kXrun);
    }
}

void Stream::halt(Progress reason) {
    state_ = State::kIdle;
    progress_ = reason;
}

/// Tells the other stream how far this one can go.
void Stream::publish(RoomState& room) const {
    StreamState& own = room.of(role_);
    own.running = state_ == State::kRunning;
    if (own.running)
        own.limit = clock_->timeOf(lastPosition());
}

void Stream::arm(RoomState& room) {
    StreamState& own = room.of(role_);
    own.wakeAt = kNever;
    if (isReady())
        return wakeup_.immediately();
    if (state_ != State::kRunning)
        return wakeup_.onlyWhenCalled();
    const Flicks time = clock_->timeOf(awaitedPosition());
    if (!lockStep_)
        return wakeup_.at(room.pacing.wallAt(time));
    own.wakeAt = time;
    wakeup_.at(monotonicNow() + kSignOfLifeInterval);
}

bool Stream::isReady() const {
    switch (state_) {
        case State::kIdle:
            return true;
        case State::kPrepared:
            return available() >= availableMinimum_;
        case State::kRunning:
            break;
    }
    return position_ >= awaitedPosition();
}

/// Frames that the application can transfer now.
std::int64_t Stream::available() const {
    const std::int64_t done = position_ - applied_;
    return role_ == Role::kPlayback ? done + bufferFrames_ : done;
}

/// Where the application wants to be woken.
std::int64_t Stream::awaitedPosition() const {
    return draining_ ? applied_ : position_ - available() + availableMinimum_;
}

/// Where the playback has run dry, or the recording is full.
std::int64_t Stream::lastPosition() const {
    return role_ == Role::kPlayback ? applied_ : applied_ + bufferFrames_;
}

/// In lock step a stream whose process was killed would hold up the other one for ever.
bool Stream::forgetDeadPeer() {
    if (!lockStep_ || room_.peerIsAlive())
        return false;
    const auto room = room_.access();
    if (!room->of(peerOf(role_)).running)
        return false;
    room->clear(peerOf(role_));
    return true;
}

}  // namespace roomsim
