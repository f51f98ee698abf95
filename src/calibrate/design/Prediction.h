#pragma once

#include "calibrate/design/ParallelFilter.h"
#include "calibrate/measurement/ImpulseResponse.h"
#include "calibrate/measurement/PowerSpectrum.h"

#include <vector>

namespace calibrate::design {

/// What a corrected loudspeaker will be measured as: the response through the filter, as long as
/// the response and at least a second, so that nothing is lost of what the filter rings. Both have
/// the same sample rate; throws std::invalid_argument otherwise.
measurement::ImpulseResponse predict(const measurement::ImpulseResponse& response,
                                     const ParallelFilter& filter);

/// The same through an alignment of `gain` (dB) and `delay` (s).
measurement::ImpulseResponse aligned(const measurement::ImpulseResponse& response, double gain,
                                     double delay);

/// Mean power spectrum of several positions at one sample rate, each counting alike; not empty.
measurement::PowerSpectrum meanSpectrum(const std::vector<measurement::ImpulseResponse>& positions);

/// A spectrum through a filter of any sample rate.
measurement::PowerSpectrum predict(const measurement::PowerSpectrum& spectrum,
                                   const ParallelFilter& filter);

}  // namespace calibrate::design
