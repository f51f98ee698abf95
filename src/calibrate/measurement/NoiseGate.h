#pragma once

#include "calibrate/measurement/ImpulseResponse.h"

#include <span>

namespace calibrate::measurement {

/// A response without the noise into which it decays: in each octave it is faded out from the
/// moment in which it has sunk to the noise's level on (after Lundeby, 1995). An octave that never
/// comes out of the noise is silent afterwards.
///
/// `noise` is what the same measurement gives where no sound is; the response's largest sample lies
/// `before` s after its start.
ImpulseResponse withoutNoise(const ImpulseResponse& response, std::span<const double> noise,
                             double before);

}  // namespace calibrate::measurement
