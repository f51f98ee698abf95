#pragma once

#include <complex>
#include <cstddef>
#include <memory>
#include <span>
#include <vector>

namespace calibrate::design {

/// Whether the poles of 1 / (1 + a1 z⁻¹ + a2 z⁻²) lie within the unit circle.
bool decays(float a1, float a2);

/// (b0 + b1 z⁻¹) / (1 + a1 z⁻¹ + a2 z⁻²), in parallel to the taps.
struct Section {
    float a1{0};
    float a2{0};
    float b0{0};
    float b1{0};
};

/// A FIR filter with second-order sections in parallel: y = Σ taps x + Σ sections x. Coefficients
/// are in the precision in which a device takes them.
struct ParallelFilter {
    double sampleRate{0};  ///< Hz
    std::vector<float> taps;
    std::vector<Section> sections;

    /// Every section decays, and every coefficient is a number.
    bool isStable() const;

    std::complex<double> response(double frequency) const;

    /// The first `length` samples of the impulse response.
    std::vector<double> impulseResponse(std::size_t length) const;

    /// Multiplies the whole by a linear factor. The taps make up for what the sections' numerators
    /// lose by being rounded again.
    void scale(double factor);
};

/// How much a device's filter holds at one sample rate.
struct FilterCapacity {
    double sampleRate{48'000};  ///< Hz
    std::size_t maxTaps{1'000};
    std::size_t maxSections{30};
};

/// Finds the parallel filter closest to an impulse response (Bank, 2008): the sections' poles are
/// fixed, equally spaced on a logarithmic axis from `lowest` (Hz) to where the taps resolve by
/// themselves; the sections' numerators are fitted to what comes after the last tap, by least
/// squares; the taps are what the response has before that and the sections lack. Always stable.
/// What does not depend on the response is worked out once, so that many are fitted quickly.
class ParallelFit {
public:
    /// For responses of up to `length` samples; what is later than 0.7 s does not count. The
    /// capacity has at least one tap.
    ParallelFit(const FilterCapacity& capacity, double lowest, std::size_t length);
    ParallelFit(ParallelFit&&) noexcept;
    ~ParallelFit();

    ParallelFilter fit(std::span<const double> impulseResponse) const;

private:
    class Equations;

    FilterCapacity capacity_;
    std::size_t length_;
    std::vector<Section> poles_;  ///< none where the taps reach to the end
    std::unique_ptr<const Equations> equations_;
};

/// The same for one response.
ParallelFilter fitParallelFilter(std::span<const double> impulseResponse,
                                 const FilterCapacity& capacity, double lowest);

}  // namespace calibrate::design
