#pragma once

#include "calibrate/measurement/ImpulseResponse.h"

namespace calibrate::measurement {

/// m/s at 20 °C
inline constexpr double kSpeedOfSound = 343;

/// How a loudspeaker's direct sound arrives.
struct Arrival {
    double time{0};        ///< s from the impulse to the onset of the direct sound
    bool inverted{false};  ///< the first swing goes the other way: the loudspeaker's wires swapped
    double level{0};       ///< dB, mean power gain from 200 Hz to 4 kHz, or where the sound is

    /// m, without what the device's own latency (s) adds
    double distance(double latency = 0) const { return (time - latency) * kSpeedOfSound; }
};

/// Finds the direct sound: the first moment at which the response comes up to a fifth of its
/// largest sample and out of what stands before it; between samples by interpolation. Responses of
/// woofers rise slowly, and their onset is as uncertain as a part of their shortest period.
/// The response is not empty. A silent one arrives at its start with a level of -300 dB.
Arrival findArrival(const ImpulseResponse& response);

}  // namespace calibrate::measurement
