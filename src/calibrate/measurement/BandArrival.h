#pragma once

#include "calibrate/measurement/ImpulseResponse.h"

#include <vector>

namespace calibrate::measurement {

struct BandArrival {
    double frequency{0};  ///< Hz, the octave's middle
    double time{0};       ///< s, when the octave's envelope comes up to its largest value's half
};

/// When each octave from 500 Hz to 8 kHz arrives, as far as it stands out. In a whole recording
/// they arrive together; a recording that lost samples has one part of the sweep's octaves later
/// than the other.
std::vector<BandArrival> bandArrivals(const ImpulseResponse& response);

}  // namespace calibrate::measurement
