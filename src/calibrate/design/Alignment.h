#pragma once

#include "calibrate/measurement/Arrival.h"

#include <string>
#include <vector>

namespace calibrate::design {

/// What a device's delay and gain stage takes.
struct AlignmentCapacity {
    double maxDelay{150 / 48'000.0};  ///< s
    double maxGain{10};               ///< dB, up and down
};

/// What makes a loudspeaker's sound arrive with the others', and as loud.
struct Alignment {
    double delay{0};  ///< s, >= 0
    double gain{0};   ///< dB, <= 0
};

/// Delays every speaker to the latest one and lowers it to the quietest one, as far as the capacity
/// allows; what it does not allow is told in `warnings`. The arrivals share one origin of time.
std::vector<Alignment> align(const std::vector<measurement::Arrival>& arrivals,
                             const std::vector<std::string>& names,
                             const AlignmentCapacity& capacity, std::vector<std::string>& warnings);

}  // namespace calibrate::design
