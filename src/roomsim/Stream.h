#pragma once

#include "roomsim/RoomDescription.h"
#include "roomsim/SharedRoom.h"
#include "roomsim/Timeline.h"
#include "roomsim/Wakeup.h"

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>

namespace roomsim {

/// One of the two PCM streams of a room, seen as a driver sees a sound card's: it moves frames
/// between an application and the room, and tells how far the room has come with them.
///
/// Frames count from the last prepare(). `applied` is the application's place: it has written, or
/// read, the frames before. Thread-safe.
class Stream {
public:
    enum class Progress {
        kMoving,
        kXrun,       ///< the application came too late; the stream has stopped
        kUnplugged,  ///< the device is gone; the stream has stopped
    };
    struct Position {
        Progress progress;
        std::int64_t frames;  ///< played, or recorded
    };
    enum class Readiness {
        kWaiting,
        kReady,    ///< as many frames as the application asked for can be transferred
        kStopped,  ///< no frame will ever be
    };

    virtual ~Stream() = default;
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    /// To be polled for input: readable when readiness() is worth a look.
    [[nodiscard]] int pollFd() const { return wakeup_.fd(); }

    /// `bufferFrames` <= kLongestBuffer. Throws RoomError.
    void configure(unsigned int rate, std::int64_t bufferFrames);

    /// The application wants to be woken when `availableMinimum` frames can be transferred; the
    /// stream stops when `stopThreshold` can. (In lock step it never does.)
    void setThresholds(std::int64_t availableMinimum, std::int64_t stopThreshold);

    void prepare();
    void start();
    void stop();

    /// `draining`: the application writes no more, and waits until all is played.
    Position position(std::int64_t applied, bool draining);

    Readiness readiness();

    /// The room time of the last start.
    [[nodiscard]] Flicks startTime();

protected:
    /// `unpluggedAfter`: s after each start when the device is gone.
    Stream(const RoomDescription& description, Role role, double driftPpm,
           std::optional<double> unpluggedAfter);

    // What the derived class has to do besides; called with mutex_ held, and some with the room's.
    virtual void configured() = 0;
    virtual void started(const RoomMemory::Access& room) = 0;
    virtual void stopped(const RoomMemory::Access& /*room*/) {}

    // For the derived class, with mutex_ held.

    /// Brings the room's clock and this stream up to date, does `action` at that moment, and sets
    /// when the application is woken.
    void update(const std::function<void(const RoomMemory::Access& room)>& action);
    void update();

    [[nodiscard]] bool isRunning() const { return state_ == State::kRunning; }
    [[nodiscard]] bool isPrepared() const { return state_ == State::kPrepared; }
    void setApplied(std::int64_t applied) { applied_ = applied; }
    [[nodiscard]] std::int64_t applied() const { return applied_; }
    [[nodiscard]] std::int64_t framesDone() const { return position_; }
    [[nodiscard]] const StreamClock& clock() const { return *clock_; }
    [[nodiscard]] Flicks now() const { return now_; }
    [[nodiscard]] unsigned int rate() const { return rate_; }
    [[nodiscard]] std::int64_t bufferFrames() const { return bufferFrames_; }

    std::mutex mutex_;
    SharedRoom room_;

private:
    enum class State { kIdle, kPrepared, kRunning };

    void end(const RoomMemory::Access& room);
    void catchUp(RoomState& room);
    void follow();
    void halt(Progress reason);
    void publish(RoomState& room) const;
    void arm(RoomState& room);
    [[nodiscard]] bool isReady() const;
    [[nodiscard]] std::int64_t available() const;
    [[nodiscard]] std::int64_t awaitedPosition() const;
    [[nodiscard]] std::int64_t lastPosition() const;
    bool forgetDeadPeer();

    // Constant after construction.
    Role role_;
    double driftPpm_;
    bool lockStep_;
    std::optional<Flicks> unpluggedAfter_;

    // Guarded by mutex_; the file descriptor of wakeup_ is constant.
    Wakeup wakeup_;
    unsigned int rate_ = kRates.front();
    std::int64_t bufferFrames_ = 0;
    std::int64_t availableMinimum_ = 1;
    std::int64_t stopThreshold_ = 0;
    State state_ = State::kIdle;
    Progress progress_ = Progress::kMoving;
    std::optional<StreamClock> clock_;  ///< since the first start
    Flicks now_ = 0;
    std::int64_t applied_ = 0;
    bool draining_ = false;
    std::int64_t position_ = 0;
};

}  // namespace roomsim
