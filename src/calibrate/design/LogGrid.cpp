#include "calibrate/design/LogGrid.h"

#include <algorithm>
#include <cmath>

namespace calibrate::design {

LogGrid::LogGrid(double lowest, double highest, double pointsPerOctave)
    : pointsPerOctave_(pointsPerOctave) {
    const double steps = std::max(1.0, std::round(std::log2(highest / lowest) * pointsPerOctave));
    for (double step = 0; step <= steps; ++step)
        frequencies_.push_back(lowest * std::exp2(step / pointsPerOctave));
}

double LogGrid::interpolate(std::span<const double> values, double frequency) const {
    const double last = static_cast<double>(size() - 1);
    const double position =
        std::clamp(std::log2(frequency / frequencies_.front()) * pointsPerOctave_, 0.0, last);
    const auto below = std::min(static_cast<std::size_t>(position), size() - 2);
    const double part = position - static_cast<double>(below);
    return values[below] + part * (values[below + 1] - values[below]);
}

std::vector<double> LogGrid::smooth(std::span<const double> powers, double octaves) const {
    // A point stands for a band as wide as its frequency, so that the mean is one over frequency.
    std::vector<double> energy(size() + 1);
    std::vector<double> width(size() + 1);
    for (std::size_t i = 0; i < size(); ++i) {
        energy[i + 1] = energy[i] + powers[i] * frequencies_[i];
        width[i + 1] = width[i] + frequencies_[i];
    }
    const auto half = static_cast<std::size_t>(std::lround(octaves * pointsPerOctave_ / 2));
    std::vector<double> smoothed(size());
    for (std::size_t i = 0; i < size(); ++i) {
        const std::size_t from = i > half ? i - half : 0;
        const std::size_t to = std::min(i + half + 1, size());
        smoothed[i] = (energy[to] - energy[from]) / (width[to] - width[from]);
    }
    return smoothed;
}

}  // namespace calibrate::design
