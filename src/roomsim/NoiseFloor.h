#pragma once

#include <cstddef>
#include <cstdint>

namespace roomsim {

/// White Gaussian noise that is a function of seed and frame alone: however a recording is cut into
/// blocks, the same frames carry the same noise.
class NoiseFloor {
public:
    /// `rms` of full scale; 0 is silence.
    NoiseFloor(double rms, std::uint64_t seed) : rms_(rms), seed_(seed) {}

    /// Adds the noise of the frames from `frame` on.
    void add(std::int64_t frame, float* samples, std::size_t count) const;

private:
    [[nodiscard]] double valueAt(std::uint64_t frame) const;

    double rms_;
    std::uint64_t seed_;
};

}  // namespace roomsim
