#include "calibrate/design/Prediction.h"

#include "calibrate/measurement/Fft.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace calibrate::design {

using measurement::ImpulseResponse;
using measurement::PowerSpectrum;

namespace {

constexpr double kLeastSeconds = 1;  // of a prediction
constexpr std::size_t kSize = std::size_t{1} << 17;

void add(std::vector<double>& sum, const PowerSpectrum& spectrum, std::size_t positions) {
    const double level = spectrum.meanAround(700, 6) * static_cast<double>(positions);
    for (std::size_t bin = 0; bin < sum.size(); ++bin)
        sum[bin] += spectrum.power()[bin] / std::max(level, 1e-300);
}

}  // namespace

ImpulseResponse predict(const ImpulseResponse& response, const ParallelFilter& filter) {
    if (response.sampleRate != filter.sampleRate)
        throw std::invalid_argument("a filter applies to responses of its own sample rate");
    ImpulseResponse result = response;
    const std::size_t length = std::max(
        response.samples.size(), static_cast<std::size_t>(kLeastSeconds * response.sampleRate));
    result.samples = measurement::convolve(response.samples, filter.impulseResponse(length));
    result.samples.resize(length);
    return result;
}

ImpulseResponse aligned(const ImpulseResponse& response, double gain, double delay) {
    ImpulseResponse result = response;
    for (double& sample : result.samples)
        sample *= std::pow(10.0, gain / 20);
    result.start += delay;
    return result;
}

PowerSpectrum meanSpectrum(const std::vector<ImpulseResponse>& positions) {
    std::size_t longest = static_cast<std::size_t>(1.4 * positions.front().sampleRate);
    for (const auto& position : positions)
        longest = std::max(longest, position.samples.size());
    const std::size_t size = measurement::fftSize(longest);
    std::vector<double> sum(size / 2 + 1);
    for (const auto& position : positions)
        add(sum, measurement::PowerSpectrum(position.samples, position.sampleRate, size),
            positions.size());
    return PowerSpectrum::ofBins(std::move(sum), positions.front().sampleRate);
}

PowerSpectrum predict(const PowerSpectrum& spectrum, const ParallelFilter& filter) {
    const auto gains =
        measurement::PowerSpectrum(filter.impulseResponse(kSize / 2), filter.sampleRate, kSize);
    std::vector<double> power(spectrum.power());
    for (std::size_t bin = 0; bin < power.size(); ++bin) {
        const double position = static_cast<double>(bin) * spectrum.binWidth() / gains.binWidth();
        const auto below = std::min(static_cast<std::size_t>(position), gains.power().size() - 2);
        const double part = std::min(position - static_cast<double>(below), 1.0);
        power[bin] *= (1 - part) * gains.power()[below] + part * gains.power()[below + 1];
    }
    return PowerSpectrum::ofBins(std::move(power), 2 * spectrum.highest());
}

}  // namespace calibrate::design
