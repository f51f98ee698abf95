#pragma once

#include <chrono>
#include <cmath>
#include <cstdint>

// Microphone signals that tell when they were captured: each frame holds its number, counted at
// 48 kHz by the machine's monotonic clock, which all processes share.

namespace frametime {

using Clock = std::chrono::steady_clock;
using Nanoseconds = std::chrono::nanoseconds;

constexpr int kRate = 48000;  // Hz
// A frame lasts 125000 / 6 ns.
constexpr std::int64_t kNumerator = 125'000;
constexpr std::int64_t kDenominator = 6;

/// A sample holds 22 bits of the number, so that it is exact as a float as well.
constexpr int kBits = 22;
constexpr std::int64_t kWrap = std::int64_t{1} << kBits;

/// The frame that is being captured at that time.
inline std::int64_t frameAt(Clock::time_point time) {
    return Nanoseconds(time.time_since_epoch()).count() * kDenominator / kNumerator;
}

/// When that frame begins; the one before has been captured then.
inline Clock::time_point beginOf(std::int64_t frame) {
    return Clock::time_point(Nanoseconds((frame * kNumerator + kDenominator - 1) / kDenominator));
}

inline std::int32_t sampleOf(std::int64_t frame) {
    return static_cast<std::int32_t>(frame % kWrap) << (31 - kBits);
}

/// How long ago, at `now`, the frame with this sample was complete. Up to 87 s.
inline Nanoseconds ageOf(float sample, Clock::time_point now) {
    const std::int64_t current = frameAt(now);
    const auto number = static_cast<std::int64_t>(std::lround(sample * static_cast<float>(kWrap)));
    const std::int64_t back = (current - number % kWrap) & (kWrap - 1);
    return now - beginOf(current - back + 1);
}

}  // namespace frametime
