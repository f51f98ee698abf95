#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace calibrate {

/// The levels of a recording, against a full scale of 1.
class LevelMeter {
public:
    void add(std::span<const float> samples);

    std::uint64_t samples() const { return samples_; }
    /// dB; minus infinity without any sound.
    double peak() const;
    double rms() const;
    /// Samples at full scale, where a microphone that is overdriven stays.
    std::uint64_t clipped() const { return clipped_; }

    /// What is wrong with the levels, and what to do; nothing when all is well.
    std::optional<std::string> complaint() const;

private:
    std::uint64_t samples_{0};
    std::uint64_t clipped_{0};
    double peak_{0};
    double energy_{0};
};

}  // namespace calibrate
