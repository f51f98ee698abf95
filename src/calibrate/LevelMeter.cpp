#include "calibrate/LevelMeter.h"

#include "calibrate/Text.h"

#include <algorithm>
#include <cmath>

namespace calibrate {
namespace {

/// Just below the largest sample of a 16-bit converter.
constexpr double kFullScale = 0.9999;

/// dB. A microphone in the quietest room is louder than that.
constexpr double kSilence = -100;
constexpr double kFaint = -80;

}  // namespace

void LevelMeter::add(std::span<const float> samples) {
    samples_ += samples.size();
    for (const float sample : samples) {
        const double magnitude = std::abs(static_cast<double>(sample));
        peak_ = std::max(peak_, magnitude);
        energy_ += magnitude * magnitude;
        clipped_ += magnitude >= kFullScale ? 1 : 0;
    }
}

double LevelMeter::peak() const {
    return 20 * std::log10(peak_);
}

double LevelMeter::rms() const {
    return 10 * std::log10(energy_ / std::max(1.0, static_cast<double>(samples_)));
}

std::optional<std::string> LevelMeter::complaint() const {
    if (clipped_ > 0) {
        return counted(clipped_, "sample") +
               " at full scale: the microphone is overdriven; lower the gain of the microphone or "
               "of the speakers";
    }
    if (peak() < kSilence)
        return "the recording is silent: check that the microphone is plugged in and switched on";
    if (rms() < kFaint) {
        return "the recording is almost silent: check the microphone's gain and the speakers' "
               "volume";
    }
    return std::nullopt;
}

}  // namespace calibrate
