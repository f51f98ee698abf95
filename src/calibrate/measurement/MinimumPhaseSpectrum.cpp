#include "calibrate/measurement/MinimumPhaseSpectrum.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace calibrate::measurement {

Spectrum minimumPhaseSpectrum(std::span<const double> gains) {
    const std::size_t size = 2 * (gains.size() - 1);
    Spectrum logarithm(gains.size());
    std::ranges::transform(gains, logarithm.begin(),
                           [](double gain) { return gain * std::numbers::ln10 / 20; });
    auto cepstrum = inverseFft(logarithm, size);
    for (std::size_t n = 1; n < size / 2; ++n)
        cepstrum[n] *= 2;
    std::fill(cepstrum.begin() + static_cast<std::ptrdiff_t>(size / 2) + 1, cepstrum.end(), 0.0);
    auto spectrum = forwardFft(cepstrum, size);
    std::ranges::transform(spectrum, spectrum.begin(), [](auto bin) { return std::exp(bin); });
    return spectrum;
}

}  // namespace calibrate::measurement
