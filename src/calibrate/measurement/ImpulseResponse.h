#pragma once

#include <vector>

namespace calibrate::measurement {

/// What arrives at a microphone after an impulse of full scale.
struct ImpulseResponse {
    double sampleRate{0};         ///< Hz
    std::vector<double> samples;  ///< earliest first
    double start{0};              ///< s from the impulse to the first sample; may be negative
};

}  // namespace calibrate::measurement
