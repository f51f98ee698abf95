#pragma once

#include "calibrate/report/Calibration.h"

#include <string>
#include <vector>

namespace calibrate::report {

/// A loudspeaker in a room: direct sound after 10 ms, a reflection, and a mode of the room at 50 Hz
/// that decays by 60 dB in half a second. 0.5 s at 48 kHz; another `seed` gives another room.
measurement::ImpulseResponse roomResponse(unsigned seed);

/// A speaker that was measured at so many positions, with all checks good.
Speaker measuredSpeaker(const std::string& name, unsigned seed, std::size_t positions = 1);

/// Speakers measured at one position each; no design.
Calibration measuredCalibration(const std::vector<std::string>& names);

/// The same with a design and a verification that follows the prediction.
Calibration wholeCalibration(const std::vector<std::string>& names);

/// "Front left" and "Front right", whole. Made once.
const Calibration& stereoCalibration();

}  // namespace calibrate::report
