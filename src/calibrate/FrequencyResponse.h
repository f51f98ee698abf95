#pragma once

#include <complex>
#include <span>

namespace calibrate {

/// Response of a FIR filter at `cycles` cycles per sample (0.5: the Nyquist frequency).
std::complex<double> responseAt(std::span<const double> taps, double cycles);

struct Peak {
    double gain{0};    ///< dB; minus infinity for a filter of zeros
    double cycles{0};  ///< cycles per sample
};

/// Where the filter amplifies most, searched in steps finer than its own resolution.
Peak peakOf(std::span<const double> taps);

}  // namespace calibrate
