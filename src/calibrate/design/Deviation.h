#pragma once

#include "calibrate/measurement/FrequencyCurve.h"
#include "calibrate/measurement/PowerSpectrum.h"

#include <vector>

namespace calibrate::design {

/// Where a response is compared with its target.
struct DeviationBand {
    double lowest{30};       ///< Hz
    double highest{16'000};  ///< Hz
};

/// A response at 400 log-spaced frequencies of the band, each the mean power over 1/6 octave, in
/// dB, less the target and less the mean of all.
std::vector<measurement::FrequencyCurve::Point> deviationCurve(
    const measurement::PowerSpectrum& response, const measurement::FrequencyCurve& target,
    const DeviationBand& band = {});

/// Standard deviation of that curve, dB.
double deviation(const measurement::PowerSpectrum& response,
                 const measurement::FrequencyCurve& target, const DeviationBand& band = {});

}  // namespace calibrate::design
