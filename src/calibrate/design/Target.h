#pragma once

#include "calibrate/measurement/FrequencyCurve.h"

#include <string>

namespace calibrate::design {

/// The response that a corrected loudspeaker should have: "flat", "house" (3 dB more below 60 Hz,
/// 3 dB less at 20 kHz, as many listeners like it), or a file of frequencies and dB. Only its shape
/// counts, not its level. Throws BadInput.
measurement::FrequencyCurve readTarget(const std::string& nameOrFile);

}  // namespace calibrate::design
