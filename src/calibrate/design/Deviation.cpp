#include "calibrate/design/Deviation.h"

#include <algorithm>
#include <cmath>

namespace calibrate::design {
namespace {

constexpr int kPoints = 400;
constexpr double kOctaves = 1.0 / 6;

}  // namespace

std::vector<measurement::FrequencyCurve::Point> deviationCurve(
    const measurement::PowerSpectrum& response, const measurement::FrequencyCurve& target,
    const DeviationBand& band) {
    std::vector<measurement::FrequencyCurve::Point> points;
    double sum = 0;
    for (int i = 0; i < kPoints; ++i) {
        const double part = static_cast<double>(i) / (kPoints - 1);
        const double frequency = band.lowest * std::pow(band.highest / band.lowest, part);
        const double power = std::max(response.meanAround(frequency, kOctaves), 1e-30);
        points.push_back({frequency, 10 * std::log10(power) - target.level(frequency)});
        sum += points.back().level;
    }
    for (auto& point : points)
        point.level -= sum / kPoints;
    return points;
}

double deviation(const measurement::PowerSpectrum& response,
                 const measurement::FrequencyCurve& target, const DeviationBand& band) {
    double sum = 0;
    for (const auto& point : deviationCurve(response, target, band))
        sum += point.level * point.level;
    return std::sqrt(sum / kPoints);
}

}  // namespace calibrate::design
