#include "calibrate/design/SpeakerDesign.h"

#include "calibrate/Errors.h"
#include "calibrate/Text.h"
#include "calibrate/measurement/Fft.h"
#include "calibrate/measurement/MinimumPhaseSpectrum.h"

#include <algorithm>
#include <cmath>

namespace calibrate::design {
namespace {

constexpr std::size_t kSize = std::size_t{1} << 17;  // of the transforms; below 0.4 Hz at 48 kHz
constexpr int kTries = 4;
constexpr double kTolerance = 0.01;  // dB

using measurement::Spectrum;

std::vector<double> gainsOf(const CorrectionCurve& curve, double sampleRate) {
    std::vector<double> gains(kSize / 2 + 1);
    for (std::size_t bin = 0; bin < gains.size(); ++bin) {
        const double frequency = static_cast<double>(bin) * sampleRate / kSize;
        gains[bin] = curve.gain(frequency, sampleRate);
    }
    return gains;
}

/// s at a bin: the energy's mean time, from the transforms of h[n] and n·h[n].
double groupDelay(const std::complex<double>& bin, const std::complex<double>& ramped,
                  double sampleRate) {
    return std::norm(bin) > 0 ? (ramped / bin).real() / sampleRate : 0;
}

double largestGroupDelay(const std::vector<double>& impulse, double sampleRate, double lowest,
                         double highest) {
    const Spectrum spectrum = measurement::forwardFft(impulse, kSize);
    std::vector<double> ramp(impulse);
    for (std::size_t i = 0; i < ramp.size(); ++i)
        ramp[i] *= static_cast<double>(i);
    const Spectrum ramped = measurement::forwardFft(ramp, kSize);
    double largest = 0;
    for (std::size_t bin = 1; bin < spectrum.size(); ++bin) {
        const double frequency = static_cast<double>(bin) * sampleRate / kSize;
        if (frequency >= lowest && frequency <= std::min(highest, 0.45 * sampleRate))
            largest = std::max(largest, groupDelay(spectrum[bin], ramped[bin], sampleRate));
    }
    return largest;
}

ParallelFilter fit(const CorrectionCurve& curve, const FilterCapacity& capacity) {
    const auto spectrum = measurement::minimumPhaseSpectrum(gainsOf(curve, capacity.sampleRate));
    const auto impulse = measurement::inverseFft(spectrum, kSize);
    return fitParallelFilter(std::span(impulse).first(kSize / 2), capacity, curve.lowest);
}

/// Takes the boost that the fit added out of the whole filter.
void keepBoost(ParallelFilter& filter, double maxBoost) {
    const double excess = largestGain(filter) - maxBoost;
    if (excess > 0)
        filter.scale(std::pow(10.0, -(excess + 0.1 * kTolerance) / 20));
}

ParallelFilter fitWithinBoost(CorrectionCurve curve, const FilterCapacity& capacity,
                              const Limits& limits) {
    ParallelFilter filter;
    double most = limits.maxBoost;
    for (int attempt = 0; attempt < kTries; ++attempt) {
        filter = fit(curve, capacity);
        const double excess = largestGain(filter) - limits.maxBoost;
        if (excess <= kTolerance)
            break;
        most -= excess;
        std::ranges::transform(curve.gains, curve.gains.begin(),
                               [most](double gain) { return std::min(gain, most); });
    }
    keepBoost(filter, limits.maxBoost);
    return filter;
}

}  // namespace

void checkLimits(const Limits& limits) {
    if (!(limits.lowest >= 5) || !(limits.highest <= 24'000) ||
        !(limits.highest >= 2 * limits.lowest)) {
        throw BadInput("the range " + hertz(limits.lowest) + " to " + hertz(limits.highest) +
                       " cannot be corrected: it begins at 5 Hz or above, ends at 24 kHz or below, "
                       "and is an octave wide at least");
    }
    if (!(limits.maxBoost >= 0 && limits.maxBoost <= 30))
        throw BadInput("a boost of " + fixed(limits.maxBoost, 1) + " dB is not from 0 to 30 dB");
    if (!(limits.maxCut >= 0 && limits.maxCut <= 60))
        throw BadInput("a cut of " + fixed(limits.maxCut, 1) + " dB is not from 0 to 60 dB");
    if (!(limits.maxGroupDelay > 0))
        throw BadInput("the group delay's limit must be above 0");
}

void checkCapacity(const FilterCapacity& capacity) {
    if (!(capacity.sampleRate >= 8'000 && capacity.sampleRate <= 768'000))
        throw BadInput("a filter at " + hertz(capacity.sampleRate) + " cannot be designed");
    if (capacity.maxTaps == 0) {
        throw BadInput("the device holds no filter taps at " + hertz(capacity.sampleRate) +
                       " (capacity 0): there is no room for a correction");
    }
    if (capacity.maxTaps > 65'536 || capacity.maxSections > 200)
        throw BadInput("a filter has at most 65536 taps and 200 sections");
}

double largestGain(const ParallelFilter& filter) {
    const auto impulse = filter.impulseResponse(kSize / 2);
    double largest = 0;
    for (const auto& bin : measurement::forwardFft(impulse, kSize))
        largest = std::max(largest, std::norm(bin));
    return 10 * std::log10(std::max(largest, 1e-30));
}

double largestGroupDelay(const ParallelFilter& filter, double lowest, double highest) {
    return largestGroupDelay(filter.impulseResponse(kSize / 2), filter.sampleRate, lowest, highest);
}

ParallelFilter realise(const CorrectionCurve& curve, const FilterCapacity& capacity,
                       const Limits& limits) {
    checkLimits(limits);
    checkCapacity(capacity);
    ParallelFilter filter = fitWithinBoost(curve, capacity, limits);
    for (double octaves = 1.0 / 6; octaves < 32; octaves *= 2) {
        if (largestGroupDelay(filter, limits.lowest, limits.highest) <= limits.maxGroupDelay)
            break;
        filter = fitWithinBoost(coarser(curve, octaves), capacity, limits);
    }
    if (!filter.isStable())
        throw std::logic_error("a correction filter came out unstable");
    return filter;
}

}  // namespace calibrate::design
