#include "calibrate/design/SmoothedPower.h"

#include "calibrate/measurement/Arrival.h"
#include "calibrate/measurement/PowerSpectrum.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace calibrate::design {
namespace {

using measurement::ImpulseResponse;
using measurement::PowerSpectrum;

constexpr double kRise = 0.02;          // s before the arrival that fade in
constexpr double kWindowStep = 1.4142;  // from one window's length to the next
constexpr double kFaintest = 1e-30;

std::vector<double> windowed(const ImpulseResponse& response, double arrival, double length) {
    std::vector<double> samples(response.samples);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double time = static_cast<double>(i) / response.sampleRate - arrival;
        const double part = time < 0 ? -time / kRise : time / length;
        samples[i] *= part < 1 ? 0.5 + 0.5 * std::cos(std::numbers::pi * part) : 0;
    }
    return samples;
}

/// Spectra through windows whose lengths rise in steps; in between they are interpolated.
class Windows {
public:
    Windows(const ImpulseResponse& response, const FrequencyDependentWindow& window, double lowest)
        : window_(window) {
        const double arrival = measurement::findArrival(response).time - response.start;
        for (double length = window.least;; length *= kWindowStep) {
            spectra_.push_back(measurement::PowerSpectrum(windowed(response, arrival, length),
                                                          response.sampleRate));
            if (length * lowest >= window.periods)
                return;
        }
    }

    double power(double frequency, double octaves) const {
        const double length = std::max(window_.periods / frequency, window_.least);
        const double position = std::log(length / window_.least) / std::log(kWindowStep);
        const auto below = std::min(static_cast<std::size_t>(position), spectra_.size() - 1);
        const auto above = std::min(below + 1, spectra_.size() - 1);
        const double part = position - static_cast<double>(below);
        return (1 - part) * spectra_[below].meanAround(frequency, octaves) +
               part * spectra_[above].meanAround(frequency, octaves);
    }

private:
    FrequencyDependentWindow window_;
    std::vector<PowerSpectrum> spectra_;  ///< shortest window first
};

double logarithmicMean(const std::vector<double>& powers) {
    double sum = 0;
    for (const double power : powers)
        sum += std::log(power);
    return std::exp(sum / static_cast<double>(powers.size()));
}

}  // namespace

std::vector<double> windowedPower(const ImpulseResponse& response, const LogGrid& grid,
                                  const FrequencyDependentWindow& window) {
    const Windows windows(response, window, grid.frequencies().front());
    std::vector<double> powers(grid.size());
    std::ranges::transform(grid.frequencies(), powers.begin(), [&](double frequency) {
        return std::max(windows.power(frequency, 1 / grid.pointsPerOctave()), kFaintest);
    });
    return powers;
}

std::vector<double> meanPower(const std::vector<ImpulseResponse>& positions, const LogGrid& grid,
                              const FrequencyDependentWindow& window) {
    std::vector<double> sum(grid.size());
    for (const auto& position : positions) {
        const auto powers = windowedPower(position, grid, window);
        const double level = logarithmicMean(powers) * static_cast<double>(positions.size());
        for (std::size_t i = 0; i < sum.size(); ++i)
            sum[i] += powers[i] / level;
    }
    return sum;
}

}  // namespace calibrate::design
