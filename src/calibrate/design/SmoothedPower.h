#pragma once

#include "calibrate/design/LogGrid.h"
#include "calibrate/measurement/ImpulseResponse.h"

#include <vector>

namespace calibrate::design {

/// How long after its arrival the sound counts: this many periods of each frequency, and at least
/// the room's reverberation, which the ear adds to the direct sound as well.
struct FrequencyDependentWindow {
    double periods{30};
    double least{0.4};  ///< s
};

/// Power of a response on the grid, through the frequency-dependent window. Nothing that lies
/// between two points of the grid is left out. The response is not empty.
std::vector<double> windowedPower(const measurement::ImpulseResponse& response, const LogGrid& grid,
                                  const FrequencyDependentWindow& window);

/// The mean power of several positions. Each counts alike, however loud it is. Not empty.
std::vector<double> meanPower(const std::vector<measurement::ImpulseResponse>& positions,
                              const LogGrid& grid, const FrequencyDependentWindow& window);

}  // namespace calibrate::design
