#include "roomsim/Timeline.h"

#include <algorithm>
#include <cmath>

namespace roomsim {
namespace {

constexpr double kFlicksPerNanosecond = static_cast<double>(kFlicksPerSecond) * 1e-9;

}  // namespace

StreamClock::StreamClock(unsigned int rate, double driftPpm, Flicks now)
    : start_(FrameGrid(rate).timeOf(FrameGrid(rate).frameAtOrAfter(now))),
      period_(flicksPerFrame(rate)),
      driftingPeriod_(static_cast<double>(period_) / (1.0 + driftPpm * 1e-6)),
      drifts_(driftPpm != 0.0) {
}

Flicks StreamClock::timeOf(std::int64_t frames) const {
    if (!drifts_)
        return start_ + frames * period_;
    return start_ + static_cast<Flicks>(std::ceil(static_cast<double>(frames) * driftingPeriod_));
}

double StreamClock::exactTimeOf(std::int64_t frames) const {
    return static_cast<double>(start_) + static_cast<double>(frames) * driftingPeriod_;
}

std::int64_t StreamClock::framesAt(Flicks now) const {
    if (now <= start_)
        return 0;
    if (!drifts_)
        return (now - start_) / period_;
    auto frames = static_cast<std::int64_t>(static_cast<double>(now - start_) / driftingPeriod_);
    while (timeOf(frames + 1) <= now)
        ++frames;
    while (frames > 0 && timeOf(frames) > now)
        --frames;
    return frames;
}

Flicks Pacing::timeAt(std::int64_t wall) const {
    const double elapsed = static_cast<double>(std::max<std::int64_t>(wall - epoch, 0));
    return static_cast<Flicks>(elapsed * kFlicksPerNanosecond * speed);
}

std::int64_t Pacing::wallAt(Flicks time) const {
    const double elapsed = static_cast<double>(time) / (kFlicksPerNanosecond * speed);
    return epoch + static_cast<std::int64_t>(std::ceil(elapsed)) + 1;
}

}  // namespace roomsim
