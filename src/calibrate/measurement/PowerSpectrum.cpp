#include "calibrate/measurement/PowerSpectrum.h"

#include "calibrate/measurement/Fft.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace calibrate::measurement {
namespace {

std::size_t sizeFor(std::size_t samples, double sampleRate) {
    return fftSize(std::max(samples, static_cast<std::size_t>(sampleRate * 1.4)));
}

std::vector<double> powerOf(std::span<const double> samples, std::size_t size) {
    const auto spectrum = forwardFft(samples, size);
    std::vector<double> power(spectrum.size());
    std::ranges::transform(spectrum, power.begin(), [](auto bin) { return std::norm(bin); });
    return power;
}

}  // namespace

PowerSpectrum::PowerSpectrum(std::span<const double> samples, double sampleRate, std::size_t size)
    : PowerSpectrum(Bins{powerOf(samples, size ? size : sizeFor(samples.size(), sampleRate))},
                    sampleRate) {
}

PowerSpectrum PowerSpectrum::ofBins(std::vector<double> power, double sampleRate) {
    return {Bins{std::move(power)}, sampleRate};
}

PowerSpectrum::PowerSpectrum(Bins bins, double sampleRate)
    : power_(std::move(bins.power)),
      cumulated_(power_.size() + 1),
      binWidth_(sampleRate / 2 / static_cast<double>(power_.size() - 1)) {
    std::partial_sum(power_.begin(), power_.end(), cumulated_.begin() + 1);
}

double PowerSpectrum::highest() const {
    return binWidth_ * static_cast<double>(power_.size() - 1);
}

double PowerSpectrum::sum(double from, double to) const {
    return cumulated(to) - cumulated(from);
}

double PowerSpectrum::mean(double from, double to) const {
    const double middle = (from + to) / 2;
    const double half = std::max(to - from, binWidth_) / 2;
    const double top = std::min(middle + half, highest() + binWidth_ / 2);
    const double bottom = std::clamp(middle - half, 0.0, top - binWidth_);
    return sum(bottom, top) / ((top - bottom) / binWidth_);
}

double PowerSpectrum::meanAround(double frequency, double octaves) const {
    const double half = std::exp2(octaves / 2);
    return mean(frequency / half, frequency * half);
}

/// A bin reaches half a bin's width to both sides of its frequency.
double PowerSpectrum::cumulated(double frequency) const {
    const double last = static_cast<double>(power_.size());
    const double position = std::clamp(frequency / binWidth_ + 0.5, 0.0, last);
    const auto bin = std::min(static_cast<std::size_t>(position), power_.size() - 1);
    return cumulated_[bin] + (position - static_cast<double>(bin)) * power_[bin];
}

}  // namespace calibrate::measurement
