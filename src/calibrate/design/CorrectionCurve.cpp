#include "calibrate/design/CorrectionCurve.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <utility>

namespace calibrate::design {
namespace {

constexpr double kPointsPerOctave = 96;

/// The smoothed inverse of a response is not quite the inverse of the smoothed response: a second
/// round takes out most of what the first one leaves.
constexpr int kRounds = 2;

/// dB below the loudest octave at which a loudspeaker plays nothing that could be corrected.
constexpr double kSilent = -40;

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

double median(std::vector<double> gains) {
    const auto middle = gains.begin() + static_cast<std::ptrdiff_t>(gains.size() / 2);
    std::ranges::nth_element(gains, middle);
    return *middle;
}

/// The highest gain that lies no more than `maxBoost` above the pink gain of what is left when all
/// above it is cut off. Never below the median: a filter that may boost nothing still cuts.
double ceilingOf(const std::vector<double>& gains, double maxBoost) {
    double low = std::ranges::min(gains);
    double high = std::ranges::max(gains);
    if (high - pinkGain(gains, high) <= maxBoost)
        return high;
    for (int i = 0; i < kBisections; ++i) {
        const double middle = (low + high) / 2;
        (middle - pinkGain(gains, middle) > maxBoost ? high : low) = middle;
    }
    return std::max(low, median(gains));
}

void limit(std::vector<double>& gains, const Limits& limits) {
    const double ceiling = ceilingOf(gains, limits.maxBoost);
    const double level = pinkGain(gains, ceiling);
    std::ranges::transform(gains, gains.begin(), [&](double gain) {
        return std::max(std::min(gain, ceiling) - level, -limits.maxCut);
    });
}

/// The part of the grid in which the loudspeaker is at work: from the first to the last octave that
/// is no more than kSilent below the mean.
std::pair<std::size_t, std::size_t> usableRange(const LogGrid& grid,
                                                const std::vector<double>& powers) {
    const auto octaves = grid.smooth(powers, 1);
    const double loudest = std::ranges::max(octaves);
    const auto audible = [&](double octave) { return octave >= loudest * power(kSilent); };
    const auto first = std::ranges::find_if(octaves, audible) - octaves.begin();
    const auto last = std::find_if(octaves.rbegin(), octaves.rend(), audible) - octaves.rbegin();
    return {static_cast<std::size_t>(first), octaves.size() - static_cast<std::size_t>(last)};
}

double raisedCosine(double part) {
    return 0.5 + 0.5 * std::cos(std::numbers::pi * std::clamp(part, 0.0, 1.0));
}

/// Limits the gains in a part of the grid; those beyond it go on level.
void limitWithin(std::vector<double>& gains, const std::pair<std::size_t, std::size_t>& part,
                 const Limits& limits) {
    const auto first = gains.begin() + static_cast<std::ptrdiff_t>(part.first);
    const auto last = gains.begin() + static_cast<std::ptrdiff_t>(part.second);
    std::vector<double> within(first, last);
    limit(within, limits);
    std::ranges::copy(within, first);
    std::fill(gains.begin(), first, within.front());
    std::fill(last, gains.end(), within.back());
    limit(gains, limits);
}

}  // namespace

double CorrectionCurve::boost() const {
    const double largest = std::ranges::max(gains);
    return largest - pinkGain(gains, largest);
}

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
    const auto usable = usableRange(grid, powers);
    std::vector<double> gains(grid.size());
    for (int round = 0; round < kRounds; ++round) {
        std::vector<double> corrected(grid.size());
        for (std::size_t i = 0; i < gains.size(); ++i)
            corrected[i] = powers[i] * power(gains[i]);
        const auto smoothed = grid.smooth(corrected, options.smoothing);
        for (std::size_t i = 0; i < gains.size(); ++i)
            gains[i] += options.target.level(grid.frequencies()[i]) - decibels(smoothed[i]);
        limitWithin(gains, usable, limits);
    }
    return {grid, gains, limits.lowest, limits.highest};
}

CorrectionCurve adjusted(const CorrectionCurve& curve, const std::vector<double>& gains,
                         const Limits& limits) {
    CorrectionCurve result = curve;
    std::ranges::transform(curve.gains, gains, result.gains.begin(), std::plus<>());
    limit(result.gains, limits);
    return result;
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
