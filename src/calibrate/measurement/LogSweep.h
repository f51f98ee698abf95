#pragma once

#include <cstddef>
#include <vector>

namespace calibrate::measurement {

/// The exponential sine sweep that a device plays, sample by sample as the device makes it.
struct LogSweep {
    double startFrequency{10};    ///< Hz
    double endFrequency{24'000};  ///< Hz
    std::size_t length{240'000};  ///< samples of one sweep, at least 2
    std::size_t silence{24'000};  ///< samples of silence after each sweep
    std::size_t periods{1};       ///< sweeps, each with its silence
    double sampleRate{48'000};    ///< Hz
    double fadeOutTail{300};      ///< Hz below endFrequency where the fade-out starts; ≤ 1: none

    /// s of one sweep without its silence.
    double duration() const { return static_cast<double>(length) / sampleRate; }

    /// s from the sweep's start to the moment in which it passes `frequency` (Hz).
    double timeOf(double frequency) const;

    /// s by which the product of the order `order` (2: the second harmonic) comes before the
    /// linear response when the recording is divided by the sweep: the sweep reaches k·f later
    /// than f by this time, whatever f is.
    double harmonicAdvance(unsigned order) const;

    /// Lowest and highest frequency (Hz) at which the sweep has its full strength.
    double lowestCovered() const { return 1.5 * startFrequency; }
    double highestCovered() const;
};

/// The full-band sweep of a device that plays stimuli at `sampleRate` (a whole number of Hz).
LogSweep fullBandSweep(unsigned int sampleRate);

/// All periods with their silence, full scale 1. Empty when there is no sweep to make.
std::vector<float> sweepSamples(const LogSweep& sweep);

/// The same at the microphone's sample rate, band-limited resampling where the rates differ.
std::vector<double> sweepSamples(const LogSweep& sweep, double sampleRate);

}  // namespace calibrate::measurement
