#pragma once

#include <cmath>
#include <complex>
#include <numbers>
#include <utility>
#include <vector>

/// A discrete Fourier transform in double precision, in place; the size is a power of two. Not
/// scaled: forth and back multiplies by the size.
inline void fourierTransform(std::vector<std::complex<double>>& values, bool back = false) {
    const std::size_t size = values.size();
    for (std::size_t i = 0, j = 0; i < size; ++i) {
        if (i < j)
            std::swap(values[i], values[j]);
        std::size_t bit = size >> 1U;
        for (; (j & bit) != 0; bit >>= 1U)
            j ^= bit;
        j |= bit;
    }
    std::vector<std::complex<double>> factors(size / 2);
    const double direction = back ? 2.0 : -2.0;
    for (std::size_t k = 0; k < factors.size(); ++k)
        factors[k] = std::polar(
            1.0, direction * std::numbers::pi * static_cast<double>(k) / static_cast<double>(size));
    for (std::size_t half = 1; half < size; half *= 2) {
        const std::size_t stride = size / (2 * half);
        for (std::size_t begin = 0; begin < size; begin += 2 * half) {
            for (std::size_t k = 0; k < half; ++k) {
                const auto odd = values[begin + half + k] * factors[k * stride];
                values[begin + half + k] = values[begin + k] - odd;
                values[begin + k] += odd;
            }
        }
    }
}

/// The spectrum of `samples`, filled up with zeros to `size`.
template <typename Samples>
std::vector<std::complex<double>> spectrumOf(const Samples& samples, std::size_t size) {
    std::vector<std::complex<double>> values(size);
    for (std::size_t i = 0; i < samples.size(); ++i)
        values[i] = static_cast<double>(samples[i]);
    fourierTransform(values);
    return values;
}
