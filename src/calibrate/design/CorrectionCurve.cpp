#include "calibrate/design/CorrectionCurve.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace calibrate::design {
namespace {

constexpr double kPointsPerOctave = 96;

/// The smoothed inverse of a response is not quite the inverse of the smoothed response: a second
/// round takes out most of what the first one leaves.
constexpr int kRounds = 2;

constexpr int kBisections = 50;
constexpr double kFade = 0.5;             // octaves
constexpr double kEndOfHearing = 15'000;  // Hz; a range that ends above it has no upper neighbour
constexpr double kStopBand = 21'500;      // Hz
constexpr double kStopBandGain = -24;     // dB

double power(double decibels) {
    return std::pow(10.0, decibels / 10);
}

double decibels(double power) {
    return 10 * std::log10(power);
}

/// The gain for pink noise: the mean power at equal steps on a logarithmic axis.
double pinkGain(const std::vector<double>& gains, double most) {
    double sum = 0;
    for (const double gain : gains)
        sum += power(std::min(gain, most));
    return decibels(sum / static_cast<double>(gains.size()));
}

/// Cuts off what lies more than `maxBoost` above the pink gain of what is left.
void limitBoost(std::vector<double>& gains, double maxBoost) {
    double low = std::ranges::min(gains);
    double high = std::ranges::max(gains);
    if (high - pinkGain(gains, high) > maxBoost) {
        for (int i = 0; i < kBisections; ++i) {
            const double middle = (low + high) / 2;
            (middle - pinkGain(gains, middle) > maxBoost ? high : low) = middle;
        }
        high = low;
    }
    const double level = pinkGain(gains, high);
    std::ranges::transform(gains, gains.begin(),
                           [&](double gain) { return std::min(gain, high) - level; });
}

void limit(std::vector<double>& gains, const Limits& limits) {
    limitBoost(gains, limits.maxBoost);
    std::ranges::transform(gains, gains.begin(),
                           [&](double gain) { return std::max(gain, -limits.maxCut); });
}

double raisedCosine(double part) {
    return 0.5 + 0.5 * std::cos(std::numbers::pi * std::clamp(part, 0.0, 1.0));
}

}  // namespace

double CorrectionCurve::gain(double frequency, double sampleRate) const {
    const double inside = grid.interpolate(gains, std::max(frequency, 1e-3));
    if (frequency <= 0)
        return 0;
    if (frequency < lowest)
        return inside * raisedCosine(std::log2(lowest / frequency) / kFade);
    if (frequency <= highest)
        return inside;
    if (highest < kEndOfHearing)
        return inside * raisedCosine(std::log2(frequency / highest) / kFade);
    const double stop = std::max(std::min(kStopBand, 0.49 * sampleRate), 1.02 * highest);
    const double weight = raisedCosine(std::log(frequency / highest) / std::log(stop / highest));
    return inside * weight + kStopBandGain * (1 - weight);
}

CorrectionCurve correctionCurve(const std::vector<measurement::ImpulseResponse>& positions,
                                const CorrectionOptions& options) {
    const auto& limits = options.limits;
    const LogGrid grid(limits.lowest, limits.highest, kPointsPerOctave);
    const auto powers = meanPower(positions, grid, options.window);
    std::vector<double> gains(grid.size());
    for (int round = 0; round < kRounds; ++round) {
        std::vector<double> corrected(grid.size());
        for (std::size_t i = 0; i < gains.size(); ++i)
            corrected[i] = powers[i] * power(gains[i]);
        const auto smoothed = grid.smooth(corrected, options.smoothing);
        for (std::size_t i = 0; i < gains.size(); ++i)
            gains[i] += options.target.level(grid.frequencies()[i]) - decibels(smoothed[i]);
        limit(gains, limits);
    }
    return {grid, gains, limits.lowest, limits.highest};
}

CorrectionCurve coarser(const CorrectionCurve& curve, double octaves) {
    const auto half = static_cast<std::size_t>(octaves * curve.grid.pointsPerOctave() / 2);
    CorrectionCurve result = curve;
    for (std::size_t i = 0; i < curve.gains.size(); ++i) {
        const std::size_t from = i > half ? i - half : 0;
        const std::size_t to = std::min(i + half + 1, curve.gains.size());
        double sum = 0;
        for (std::size_t k = from; k < to; ++k)
            sum += curve.gains[k];
        result.gains[i] = sum / static_cast<double>(to - from);
    }
    return result;
}

}  // namespace calibrate::design
