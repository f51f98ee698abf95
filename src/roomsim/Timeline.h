#pragma once

#include <array>
#include <cstdint>

/// Arithmetic of the room's time, without any clock of the machine.
///
/// Room time counts flicks from the moment the room came into being. A frame of each rate that the
/// room knows is a whole number of flicks, so positions at different rates compare exactly.
namespace roomsim {

using Flicks = std::int64_t;

inline constexpr Flicks kFlicksPerSecond = 705'600'000;
inline constexpr std::array<unsigned int, 6> kRates{44100, 48000, 88200, 96000, 176400, 192000};

constexpr Flicks flicksPerFrame(unsigned int rate) {
    return kFlicksPerSecond / rate;
}

/// Frame times of one rate, counted from time 0 of the room.
class FrameGrid {
public:
    explicit FrameGrid(unsigned int rate) : period_(flicksPerFrame(rate)) {}

    [[nodiscard]] Flicks timeOf(std::int64_t frame) const { return frame * period_; }

    /// The first frame whose time is `time` or later; `time` is not negative.
    [[nodiscard]] std::int64_t frameAtOrAfter(Flicks time) const {
        return (time + period_ - 1) / period_;
    }

    /// The frames, and part of a frame, that have passed at `time`.
    [[nodiscard]] double framesAt(double time) const { return time / static_cast<double>(period_); }

private:
    Flicks period_;
};

/// The frames of one running stream. Frame 0 begins at start(); the stream's own crystal runs
/// `driftPpm` millionths too fast. Frame n is complete when frame n + 1 begins.
class StreamClock {
public:
    /// The stream starts at the first frame of its rate's grid at `now` or later.
    StreamClock(unsigned int rate, double driftPpm, Flicks now);

    [[nodiscard]] Flicks start() const { return start_; }

    /// The room time at which `frames` frames are complete, to the next flick.
    [[nodiscard]] Flicks timeOf(std::int64_t frames) const;

    /// As timeOf, not rounded.
    [[nodiscard]] double exactTimeOf(std::int64_t frames) const;

    /// How many frames are complete at `now`: the largest n with timeOf(n) <= now, at least 0.
    [[nodiscard]] std::int64_t framesAt(Flicks now) const;

    [[nodiscard]] bool drifts() const { return drifts_; }

private:
    Flicks start_;
    Flicks period_;
    double driftingPeriod_;  ///< flicks
    bool drifts_;
};

/// Maps the machine's monotonic clock to room time, `speed` times as fast.
struct Pacing {
    std::int64_t epoch;  ///< ns, the machine's time at room time 0
    double speed;

    [[nodiscard]] Flicks timeAt(std::int64_t wall) const;

    /// The machine's time in ns at which room time `time` has come for certain.
    [[nodiscard]] std::int64_t wallAt(Flicks time) const;
};

}  // namespace roomsim
