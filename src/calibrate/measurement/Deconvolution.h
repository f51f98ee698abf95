#pragma once

#include "calibrate/measurement/ImpulseResponse.h"
#include "calibrate/measurement/LogSweep.h"

#include <span>
#include <vector>

namespace calibrate::measurement {

struct DeconvolutionWindow {
    double before{0.1};  ///< s kept before the largest sample; below the second harmonic's lead
    double length{1.0};  ///< s in all
};

/// A product of the loudspeaker's distortion.
struct Distortion {
    unsigned order{2};
    double level{0};  ///< dB, energy relative to the linear response's; noise is taken off
};

/// What a recording of a sweep holds.
struct Deconvolution {
    ImpulseResponse response;            ///< from the sweep's start in the recording's timeline
    std::vector<Distortion> distortion;  ///< orders 2 to 5
    double peakToNoise{0};  ///< dB from the RMS just before the response to its largest sample
};

/// Divides a recording by the sweep that was played (Farina, 2000), regularised where the sweep has
/// no energy (Kirkeby, 1998), and keeps what the linear response is apart from the harmonics, which
/// come ahead of it.
///
/// `recording` begins when the sweep does, or before it, and is not empty; `sampleRate` in Hz.
/// What of the response drowns in the recording's noise is faded out (see NoiseGate); whether the
/// rest is worth anything tells RecordingCheck.
Deconvolution deconvolve(std::span<const double> recording, double sampleRate,
                         const LogSweep& sweep, const DeconvolutionWindow& window = {});

}  // namespace calibrate::measurement
