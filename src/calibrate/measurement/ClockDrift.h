#pragma once

#include "calibrate/measurement/ImpulseResponse.h"
#include "calibrate/measurement/LogSweep.h"

#include <span>
#include <vector>

namespace calibrate::measurement {

/// Parts per million by which the microphone's clock runs faster than the player's, from a response
/// that deconvolve() found. Drift delays each frequency by as much as the sweep took to reach it;
/// the drift is that with which the response is the most compact. It takes a response with a clear
/// direct sound above 500 Hz, and is good to a few parts per million; 0 when the sweep does not
/// reach that high.
double estimateClockDrift(const ImpulseResponse& response, const LogSweep& sweep);

/// Largest drift that is looked for, parts per million.
inline constexpr double kLargestDrift = 500;

/// A recording as a clock without drift would have made it.
std::vector<double> withoutDrift(std::span<const double> recording, double sampleRate,
                                 double driftPpm);

}  // namespace calibrate::measurement
