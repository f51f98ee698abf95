#pragma once

#include <cstddef>
#include <span>
#include <vector>

namespace calibrate::measurement {

/// Power over frequency, of which means over any band can be taken quickly. Constant.
class PowerSpectrum {
public:
    /// Of a whole signal; `size` is the transform's, a power of two, 0 for the least that holds the
    /// signal and resolves below 1 Hz.
    PowerSpectrum(std::span<const double> samples, double sampleRate, std::size_t size = 0);

    /// `power` at equally spaced frequencies from 0 to half of `sampleRate` (Hz).
    static PowerSpectrum ofBins(std::vector<double> power, double sampleRate);

    const std::vector<double>& power() const { return power_; }
    double binWidth() const { return binWidth_; }  ///< Hz
    double highest() const;                        ///< Hz, the Nyquist frequency

    /// Sum of the power between two frequencies (Hz), with the parts of the bins at its ends.
    double sum(double from, double to) const;

    /// Mean power of a bin in the band; a band narrower than a bin gives that bin's.
    double mean(double from, double to) const;

    /// Mean over the band of `octaves` around a frequency (Hz).
    double meanAround(double frequency, double octaves) const;

private:
    struct Bins {
        std::vector<double> power;
    };

    PowerSpectrum(Bins bins, double sampleRate);

    double cumulated(double frequency) const;

    std::vector<double> power_;
    std::vector<double> cumulated_;  ///< sum of all bins before
    double binWidth_;
};

}  // namespace calibrate::measurement
