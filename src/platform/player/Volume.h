#pragma once

#include "platform/player/AudioFormat.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace platform {

/// Applies the system's attenuation. A change takes 10 ms, in which the factor moves in a straight
/// line: a step would click. At a factor of 1 the samples stay as they are, bit by bit.
class Volume {
public:
    /// Begins at the factor `gain`.
    Volume(const AudioFormat& format, double gain);

    /// Moves towards `gain` and scales whole frames in place.
    void apply(std::span<std::int32_t> samples, double gain) noexcept;

private:
    void turnTo(double gain) noexcept;

    const std::size_t channels_;
    const std::size_t rampFrames_;
    double gain_;
    double target_;
    double step_{0.0};           // of the factor, each frame
    std::size_t framesLeft_{0};  // of the ramp
};

/// The factor for an attenuation in dB; louder than 0 dB does not exist.
double gainOf(double attenuation);

}  // namespace platform
