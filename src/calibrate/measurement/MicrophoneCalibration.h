#pragma once

#include "calibrate/measurement/FrequencyCurve.h"
#include "calibrate/measurement/ImpulseResponse.h"

#include <filesystem>
#include <optional>

namespace calibrate::measurement {

/// How a microphone's response deviates from a flat one, as its maker measured it.
struct MicrophoneCalibration {
    FrequencyCurve response;  ///< dB; 0 Hz to infinity by its first and last point
    std::optional<double>
        sensitivity;  ///< dB, where the file tells it; its reference is the maker's
};

/// Reads a maker's file: see CurveFile for the columns. The sensitivity is taken from a line such
/// as `"Sens Factor =-.8643dB, SERNO: 7047870"` or `*1000Hz -40.2`. Throws BadInput.
MicrophoneCalibration readMicrophoneCalibration(const std::filesystem::path& path);

/// Takes the microphone's deviation out of a response, without delaying it: the correction is
/// minimum-phase, as microphones are.
ImpulseResponse calibrated(const ImpulseResponse& response,
                           const MicrophoneCalibration& microphone);

}  // namespace calibrate::measurement
