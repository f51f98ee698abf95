#pragma once

#include <span>
#include <vector>

namespace calibrate::measurement {

/// A signal's waveform at another sample rate (Hz), band-limited, without delay. Equal rates give
/// the signal itself. Throws std::runtime_error when the rates cannot be converted.
std::vector<double> atSampleRate(std::span<const double> samples, double from, double to);

}  // namespace calibrate::measurement
