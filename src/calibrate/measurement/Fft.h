#pragma once

#include <complex>
#include <cstddef>
#include <span>
#include <vector>

namespace calibrate::measurement {

/// The bins of a real signal's discrete Fourier transform from 0 to the Nyquist frequency:
/// size / 2 + 1 of them for a transform of `size` samples.
using Spectrum = std::vector<std::complex<double>>;

/// The smallest power of two that is not below `least`, and at least 4.
std::size_t fftSize(std::size_t least);

/// The spectrum of `samples` followed by zeros; `size` is even and not below their number.
Spectrum forwardFft(std::span<const double> samples, std::size_t size);

/// The inverse: `size` samples, scaled so that a round trip changes nothing.
std::vector<double> inverseFft(const Spectrum& spectrum, std::size_t size);

/// The linear convolution of two signals, neither of them empty.
std::vector<double> convolve(std::span<const double> a, std::span<const double> b);

}  // namespace calibrate::measurement
