#pragma once

#include <cstddef>
#include <vector>

namespace roomsim {

/// Band-limited interpolation: a Kaiser-windowed sinc, tabulated.
///
/// Interpolates between table rows; the error of a weight is below -125 dB of the largest one.
/// Constant after construction.
class SincKernel {
public:
    /// `halfWidth` samples on each side of the point; `cutoff` as a part of the Nyquist frequency
    /// in (0, 1]; `beta` shapes the Kaiser window.
    SincKernel(std::size_t halfWidth, double cutoff, double beta);

    [[nodiscard]] std::size_t halfWidth() const { return halfWidth_; }
    [[nodiscard]] std::size_t width() const { return 2 * halfWidth_; }

    /// Adds a band-limited impulse of height `gain` to width() samples. It stands `fraction`, in
    /// [0, 1), of a sample after `samples[halfWidth() - 1]`.
    void add(double fraction, float gain, float* samples) const;

    /// The value of width() samples at the point `fraction`, in [0, 1), of a sample after
    /// `samples[halfWidth() - 1]`.
    [[nodiscard]] float valueAt(double fraction, const float* samples) const;

private:
    struct Weights {
        const float* lower;
        const float* upper;
        float blend;  ///< of the upper row
    };
    [[nodiscard]] Weights weightsAt(double fraction) const;

    std::size_t halfWidth_;
    std::vector<float> table_;  ///< one row of width() weights for each phase
};

}  // namespace roomsim
