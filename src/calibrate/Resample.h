#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace calibrate {

/// Impulse responses brought to another sample rate.
///
/// A filter's response must survive, not its waveform: G(f) = H(f), in magnitude and phase. A
/// converter for audio needs room before the first tap, where its low-pass rings; a correction
/// filter starts with its largest taps and has no such room, and cutting the ringing off would bend
/// the response by decibels. So the taps are fitted instead: those are taken whose response is
/// closest, in the least-squares sense, to the original's up to 0.93 of the lower Nyquist
/// frequency; what lies above weighs little, just enough that it is no louder than the rest. The
/// gain needs no correction by the ratio of the rates, since the response itself is matched.

struct ResampleInput {
    std::span<const double> taps;  ///< earliest first, not empty
    double sampleRate{0};          ///< Hz
};

struct Resampled {
    std::vector<std::vector<double>> taps;  ///< one filter for each input, all of one delay
    /// Samples, at the new rate, by which every filter comes later than its original.
    std::size_t delay{0};
    /// Largest deviation of a response from its original up to bandEdge, in dB.
    double deviation{0};
    double bandEdge{0};  ///< Hz
    /// Largest part of a filter's energy that lay beyond the last tap and was cut, 0 to 1.
    double lostEnergy{0};
};

/// Part of a filter's energy, 0 to 1, in the taps that lie later than the first `count` samples at
/// the target's rate; `rateRatio` is the target's rate over the filter's.
double energyBeyond(std::span<const double> taps, double rateRatio, std::size_t count,
                    std::size_t delay);

/// Samples at the target's rate from a filter's first tap to its last.
std::size_t resampledLength(std::size_t taps, double rateRatio);

/// Brings all `filters` to `sampleRate` (Hz), each with at most `maxTaps` taps (1 or more).
///
/// Without a delay when that is exact to kAllowedDeviation. Otherwise, if `mayDelay`, every filter
/// is delayed by the same few samples, the least with which all are exact or, when none is enough
/// (a tail was cut), those with which they are best.
Resampled resample(const std::vector<ResampleInput>& filters, double sampleRate,
                   std::size_t maxTaps, bool mayDelay);

/// dB
inline constexpr double kAllowedDeviation = 0.01;

/// A source's sample rate over the target's, at least: below it the source says nothing about the
/// upper end of the target's band.
inline constexpr double kLeastRateRatio = 0.9;

}  // namespace calibrate
