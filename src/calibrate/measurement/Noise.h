#pragma once

#include "calibrate/measurement/LogSweep.h"

#include <span>
#include <vector>

namespace calibrate::measurement {

/// Level of a signal's RMS, dB of full scale; -300 when it is silent or empty.
double levelOf(std::span<const double> samples);

/// Largest magnitude of a signal; 0 when it is empty.
double largestSample(std::span<const double> samples);

struct BandRatio {
    double frequency{0};  ///< Hz, the octave's middle
    double ratio{0};      ///< dB
};

/// Signal-to-noise ratio in the octaves from 31.5 Hz to 16 kHz that the sweep covers. `recording`
/// holds the sweep, `silence` the same microphone without it, at the same sample rate (Hz); the
/// ratio is that while the sweep is in the octave. Empty when there is too little silence to tell.
std::vector<BandRatio> signalToNoise(std::span<const double> recording,
                                     std::span<const double> silence, double sampleRate,
                                     const LogSweep& sweep);

/// Samples in runs of three or more that stand at the recording's largest value, close to full
/// scale: what is left of clipped waves.
std::size_t clippedSamples(std::span<const double> samples);

}  // namespace calibrate::measurement
