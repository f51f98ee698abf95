#pragma once

#include "calibrate/measurement/FrequencyCurve.h"
#include "calibrate/measurement/ImpulseResponse.h"

#include <vector>

namespace calibrate::report {

/// A point of a plot; a coordinate that is no number leaves a gap in the line.
struct Point {
    double x;
    double y;
};
using Line = std::vector<Point>;

/// Whether there is anything to calculate with: samples, all of them numbers, and a sample rate.
bool isUsable(const measurement::ImpulseResponse& response);

/// Waveform around the arrival (s): time in ms after it, and per cent of `fullScale`. At most a
/// sample's extremes for each 1/600 of the width are kept.
Line waveform(const measurement::ImpulseResponse& response, double arrival, double fullScale);

/// Envelope of the response: time in ms after the arrival (s), and dB below its largest value.
Line energyTimeCurve(const measurement::ImpulseResponse& response, double arrival);

/// How the bass dies away (cumulative spectral decay).
struct Waterfall {
    std::vector<double> times;                ///< ms after the arrival
    std::vector<double> frequencies;          ///< Hz, 20 to 300, log-spaced
    std::vector<std::vector<double>> levels;  ///< by time, by frequency: dB below the largest
};

/// Spectra of what is left of the response from each time on, each of 0.3 s. The response is
/// usable; one that has no bass gives a waterfall at its floor.
Waterfall waterfall(const measurement::ImpulseResponse& response, double arrival);

inline constexpr double kWaterfallFloor = -40;    ///< dB
inline constexpr double kWaterfallLowest = 20;    ///< Hz
inline constexpr double kWaterfallHighest = 300;  ///< Hz

}  // namespace calibrate::report
