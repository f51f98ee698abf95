#include "roomsim/SincKernel.h"

#include <cmath>
#include <numbers>

namespace roomsim {
namespace {

constexpr std::size_t kPhases = 1024;

/// The modified Bessel function of the first kind and order zero, by its power series.
double besselI0(double x) {
    const double quarter = x * x / 4.0;
    double sum = 1.0;
    double term = 1.0;
    for (int k = 1; term > sum * 1e-17; ++k) {
        term *= quarter / (static_cast<double>(k) * k);
        sum += term;
    }
    return sum;
}

double sinc(double x) {
    if (std::abs(x) < 1e-12)
        return 1.0;
    return std::sin(std::numbers::pi * x) / (std::numbers::pi * x);
}

/// `position` runs from -1 to 1 over the window; the window's height is besselI0(beta).
double kaiser(double position, double beta) {
    const double inside = 1.0 - position * position;
    return inside < 0.0 ? 0.0 : besselI0(beta * std::sqrt(inside));
}

}  // namespace

SincKernel::SincKernel(std::size_t halfWidth, double cutoff, double beta)
    : halfWidth_(halfWidth), table_((kPhases + 1) * width()) {
    const auto half = static_cast<double>(halfWidth);
    const double height = cutoff / besselI0(beta);
    for (std::size_t phase = 0; phase <= kPhases; ++phase) {
        const double point = half - 1.0 + static_cast<double>(phase) / kPhases;
        for (std::size_t i = 0; i < width(); ++i) {
            const double distance = point - static_cast<double>(i);
            table_[phase * width() + i] = static_cast<float>(height * sinc(cutoff * distance) *
                                                             kaiser(distance / half, beta));
        }
    }
}

SincKernel::Weights SincKernel::weightsAt(double fraction) const {
    const double place = fraction * static_cast<double>(kPhases);
    const auto phase = static_cast<std::size_t>(place);
    const float* row = table_.data() + phase * width();
    return {row, row + width(), static_cast<float>(place - static_cast<double>(phase))};
}

void SincKernel::add(double fraction, float gain, float* samples) const {
    const Weights weights = weightsAt(fraction);
    const float upper = gain * weights.blend;
    const float lower = gain - upper;
    const std::size_t count = width();
    for (std::size_t i = 0; i < count; ++i)
        samples[i] += lower * weights.lower[i] + upper * weights.upper[i];
}

float SincKernel::valueAt(double fraction, const float* samples) const {
    const Weights weights = weightsAt(fraction);
    double lower = 0.0;
    double upper = 0.0;
    for (std::size_t i = 0; i < width(); ++i) {
        lower += static_cast<double>(samples[i]) * static_cast<double>(weights.lower[i]);
        upper += static_cast<double>(samples[i]) * static_cast<double>(weights.upper[i]);
    }
    return static_cast<float>(lower + (upper - lower) * static_cast<double>(weights.blend));
}

}  // namespace roomsim
