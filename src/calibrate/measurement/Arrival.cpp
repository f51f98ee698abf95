#include "calibrate/measurement/Arrival.h"

#include "calibrate/measurement/PowerSpectrum.h"

#include <algorithm>
#include <cmath>

namespace calibrate::measurement {
namespace {

constexpr double kOnset = 0.2;        // of the largest sample
constexpr double kAboveNoise = 4;     // times the RMS before the sound
constexpr double kFirstSwing = 0.02;  // s after the onset in which the first swing is looked for
constexpr double kSwing = 0.5;        // of the largest sample in that time

std::size_t peakOf(const std::vector<double>& samples) {
    const auto peak =
        std::ranges::max_element(samples, {}, [](double sample) { return std::abs(sample); });
    return static_cast<std::size_t>(peak - samples.begin());
}

/// RMS of the part that surely lies before the sound; 0 when there is none.
double noiseBefore(const std::vector<double>& samples, std::size_t peak) {
    const std::size_t count = peak / 4;
    double energy = 0;
    for (std::size_t i = 0; i < count; ++i)
        energy += samples[i] * samples[i];
    return count > 0 ? std::sqrt(energy / static_cast<double>(count)) : 0;
}

double onsetOf(const std::vector<double>& samples, std::size_t peak) {
    const double largest = std::abs(samples[peak]);
    const double threshold =
        std::min(largest, std::max(kOnset * largest, kAboveNoise * noiseBefore(samples, peak)));
    std::size_t first = 0;
    while (std::abs(samples[first]) < threshold)
        ++first;
    if (first == 0)
        return 0;
    const double before = std::abs(samples[first - 1]);
    const double rise = std::abs(samples[first]) - before;
    const double part = rise > 0 ? (threshold - before) / rise : 1;
    return static_cast<double>(first - 1) + std::clamp(part, 0.0, 1.0);
}

bool firstSwingIsNegative(const ImpulseResponse& response, double onset) {
    const auto& samples = response.samples;
    const auto first = static_cast<std::size_t>(onset);
    const auto reach = static_cast<std::size_t>(kFirstSwing * response.sampleRate);
    const auto end = std::min(samples.size(), first + reach + 1);
    double largest = 0;
    for (std::size_t i = first; i < end; ++i)
        largest = std::max(largest, std::abs(samples[i]));
    for (std::size_t i = first; i < end; ++i) {
        if (std::abs(samples[i]) >= kSwing * largest)
            return samples[i] < 0;
    }
    return false;
}

/// Mean power on a logarithmic axis over the octaves in which the loudspeaker is at work.
double levelOf(const ImpulseResponse& response) {
    const auto spectrum = PowerSpectrum(response.samples, response.sampleRate);
    const double middle = spectrum.mean(200, 4'000);
    const double low = spectrum.mean(30, 100);
    const bool woofer = low > 30 * middle;
    return 10 * std::log10(std::max(woofer ? low : middle, 1e-30));
}

}  // namespace

Arrival findArrival(const ImpulseResponse& response) {
    const std::size_t peak = peakOf(response.samples);
    if (response.samples[peak] == 0)
        return {response.start, false, -300};
    const double onset = onsetOf(response.samples, peak);
    return {response.start + onset / response.sampleRate, firstSwingIsNegative(response, onset),
            levelOf(response)};
}

}  // namespace calibrate::measurement
