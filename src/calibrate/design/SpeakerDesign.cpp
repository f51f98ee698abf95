#include "calibrate/design/SpeakerDesign.h"

#include "calibrate/Errors.h"
#include "calibrate/Text.h"
#include "calibrate/measurement/Fft.h"
#include "calibrate/measurement/MinimumPhaseSpectrum.h"

#include <algorithm>
#include <cmath>

namespace calibrate::design {
namespace {

constexpr double kSeconds = 1.2;      // of the transforms, which resolve its inverse in Hz
constexpr double kCoarser = 1.0 / 6;  // octaves, of the first step to a simpler curve
constexpr int kCoarserSteps = 5;      // each twice as coarse as the one before
constexpr int kHalvings = 8;          // of what is left then
constexpr int kBoostTries = 12;
constexpr double kTolerance = 0.01;      // dB
constexpr double kOverCorrection = 1.2;  // what is cut off also lowers the level
constexpr double kPointsPerOctave = 48;

using measurement::Spectrum;

std::size_t sizeFor(double sampleRate) {
    return measurement::fftSize(static_cast<std::size_t>(kSeconds * sampleRate));
}

/// The part of a transform's time that counts; the rest would be times before 0.
std::size_t lengthFor(double sampleRate) {
    return sizeFor(sampleRate) / 2;
}

std::vector<double> gainsOf(const CorrectionCurve& curve, double sampleRate) {
    const std::size_t size = sizeFor(sampleRate);
    std::vector<double> gains(size / 2 + 1);
    for (std::size_t bin = 0; bin < gains.size(); ++bin) {
        const double frequency = static_cast<double>(bin) * sampleRate / static_cast<double>(size);
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
    const std::size_t size = sizeFor(sampleRate);
    const Spectrum spectrum = measurement::forwardFft(impulse, size);
    std::vector<double> ramp(impulse);
    for (std::size_t i = 0; i < ramp.size(); ++i)
        ramp[i] *= static_cast<double>(i);
    const Spectrum ramped = measurement::forwardFft(ramp, size);
    double largest = 0;
    for (std::size_t bin = 1; bin < spectrum.size(); ++bin) {
        const double frequency = static_cast<double>(bin) * sampleRate / static_cast<double>(size);
        if (frequency >= lowest && frequency <= std::min(highest, 0.45 * sampleRate))
            largest = std::max(largest, groupDelay(spectrum[bin], ramped[bin], sampleRate));
    }
    return largest;
}

/// The curve's minimum-phase impulse response.
std::vector<double> ideal(const CorrectionCurve& curve, double sampleRate) {
    const auto spectrum = measurement::minimumPhaseSpectrum(gainsOf(curve, sampleRate));
    auto impulse = measurement::inverseFft(spectrum, sizeFor(sampleRate));
    impulse.resize(lengthFor(sampleRate));
    return impulse;
}

/// The curve with less detail the higher the step, and at last with less depth.
CorrectionCurve simplified(const CorrectionCurve& curve, int step) {
    if (step == 0)
        return curve;
    const int halvings = std::max(step - kCoarserSteps, 0);
    auto result = coarser(curve, std::ldexp(kCoarser, step - halvings - 1));
    std::ranges::transform(result.gains, result.gains.begin(),
                           [halvings](double gain) { return std::ldexp(gain, -halvings); });
    return result;
}

Spectrum spectrumOf(const ParallelFilter& filter) {
    const auto impulse = filter.impulseResponse(lengthFor(filter.sampleRate));
    return measurement::forwardFft(impulse, sizeFor(filter.sampleRate));
}

double largestGain(const Spectrum& spectrum) {
    double largest = 1e-30;
    for (const auto& bin : spectrum)
        largest = std::max(largest, std::norm(bin));
    return 10 * std::log10(largest);
}

/// dB for pink noise between two frequencies: the mean power at equal steps on a logarithmic axis.
double pinkGain(const Spectrum& spectrum, double binWidth, double lowest, double highest) {
    const LogGrid grid(lowest, highest, kPointsPerOctave);
    double sum = 0;
    for (const double frequency : grid.frequencies()) {
        const auto bin = static_cast<std::size_t>(std::lround(frequency / binWidth));
        sum += std::norm(spectrum[std::min(bin, spectrum.size() - 1)]);
    }
    return 10 * std::log10(std::max(sum / static_cast<double>(grid.size()), 1e-30));
}

void cutAbove(CorrectionCurve& curve, double most) {
    std::ranges::transform(curve.gains, curve.gains.begin(),
                           [most](double gain) { return std::min(gain, most); });
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
    if (!(limits.headroom >= -40 && limits.headroom <= 30))
        throw BadInput("a headroom of " + fixed(limits.headroom, 1) +
                       " dB is not from -40 to 30 dB");
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
    return largestGain(spectrumOf(filter));
}

double boost(const ParallelFilter& filter, double lowest, double highest) {
    const auto spectrum = spectrumOf(filter);
    const double binWidth = filter.sampleRate / static_cast<double>(sizeFor(filter.sampleRate));
    return largestGain(spectrum) - pinkGain(spectrum, binWidth, lowest, highest);
}

double largestGroupDelay(const ParallelFilter& filter, double lowest, double highest) {
    return largestGroupDelay(filter.impulseResponse(lengthFor(filter.sampleRate)),
                             filter.sampleRate, lowest, highest);
}

FilterMaker::FilterMaker(const FilterCapacity& capacity, double lowest)
    : capacity_((checkCapacity(capacity), capacity)),
      fit_(capacity, lowest, lengthFor(capacity.sampleRate)) {
}

ParallelFilter FilterMaker::withoutCorrection() const {
    return {capacity_.sampleRate, {1}, {}};
}

/// Cuts off as much of the curve as the filter has too much. None: that does not help.
std::optional<ParallelFilter> FilterMaker::fitWithinBoost(CorrectionCurve curve,
                                                          double maxBoost) const {
    double most = std::ranges::max(curve.gains);
    for (int attempt = 0; attempt < kBoostTries; ++attempt) {
        auto filter = fit_.fit(ideal(curve, capacity_.sampleRate));
        if (!filter.isStable())
            throw std::logic_error("a correction filter came out unstable");
        const double excess = boost(filter, curve.lowest, curve.highest) - maxBoost;
        if (excess <= kTolerance)
            return filter;
        most -= kOverCorrection * excess;
        cutAbove(curve, most);
    }
    return std::nullopt;
}

ParallelFilter FilterMaker::make(const CorrectionCurve& curve, const Limits& limits) const {
    checkLimits(limits);
    const double maxBoost = std::max(limits.maxBoost, curve.boost());
    const auto isSlow = [&](const std::vector<double>& impulse) {
        return largestGroupDelay(impulse, capacity_.sampleRate, curve.lowest, curve.highest) >
               limits.maxGroupDelay;
    };
    for (int step = 0; step <= kCoarserSteps + kHalvings; ++step) {
        const auto candidate = simplified(curve, step);
        // The whole curve's filter may have less delay than the curve itself.
        if (step > 0 && isSlow(ideal(candidate, capacity_.sampleRate)))
            continue;
        const auto filter = fitWithinBoost(candidate, maxBoost);
        if (filter && !isSlow(filter->impulseResponse(lengthFor(capacity_.sampleRate))))
            return *filter;
    }
    return withoutCorrection();
}

ParallelFilter realise(const CorrectionCurve& curve, const FilterCapacity& capacity,
                       const Limits& limits) {
    return FilterMaker(capacity, curve.lowest).make(curve, limits);
}

}  // namespace calibrate::design
