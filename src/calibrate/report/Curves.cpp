#include "calibrate/report/Curves.h"

#include "calibrate/design/LogGrid.h"
#include "calibrate/measurement/Fft.h"
#include "calibrate/measurement/SampleRate.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

namespace calibrate::report {
namespace {

using measurement::ImpulseResponse;

constexpr double kWaveformFrom = -0.002;  // s
constexpr double kWaveformTo = 0.010;
constexpr double kEnvelopeFrom = -0.02;
constexpr double kEnvelopeTo = 0.3;
constexpr int kColumns = 600;
constexpr double kDeepest = -200;  // dB, below every plot

constexpr double kBassRate = 2'000;   // Hz
constexpr double kSliceLength = 0.3;  // s
constexpr double kSliceRise = 0.02;   // s, so that the spectrum does not see the cut
constexpr double kSliceStep = 0.02;   // s
constexpr int kSlices = 16;
constexpr double kPointsPerOctave = 24;
constexpr double kSliceSmoothing = 1.0 / 12;  // octaves

double decibels(double power) {
    return power > 0 ? std::max(10 * std::log10(power), kDeepest) : kDeepest;
}

/// Index of the first sample at or after a time (s), within the response.
std::size_t indexAt(const ImpulseResponse& response, double time) {
    const double position = std::ceil((time - response.start) * response.sampleRate - 1e-6);
    return static_cast<std::size_t>(
        std::clamp(position, 0.0, static_cast<double>(response.samples.size())));
}

double timeAt(const ImpulseResponse& response, std::size_t index) {
    return response.start + static_cast<double>(index) / response.sampleRate;
}

/// |signal + j Hilbert transform|².
std::vector<double> envelopePower(const std::vector<double>& samples) {
    const auto size = measurement::fftSize(2 * samples.size());
    auto spectrum = measurement::forwardFft(samples, size);
    for (auto& bin : spectrum)
        bin *= std::complex<double>(0, -1);
    spectrum.front() = spectrum.back() = 0;
    const auto quadrature = measurement::inverseFft(spectrum, size);
    std::vector<double> power(samples.size());
    for (std::size_t i = 0; i < power.size(); ++i)
        power[i] = samples[i] * samples[i] + quadrature[i] * quadrature[i];
    return power;
}

/// Splits [from, to) into at most kColumns pieces and calls visit(first, end) with each.
template <class Visit>
void forEachColumn(std::size_t from, std::size_t to, Visit visit) {
    const std::size_t width = std::max<std::size_t>(1, (to - from + kColumns - 1) / kColumns);
    for (std::size_t i = from; i < to; i += width)
        visit(i, std::min(i + width, to));
}

/// The weight of a sample at `time` (s) in a slice: half-cosine rise, flat, half-cosine fall.
double sliceWeight(double time) {
    const auto raised = [](double part) { return 0.5 - 0.5 * std::cos(std::numbers::pi * part); };
    if (time < kSliceRise)
        return raised(time / kSliceRise);
    return raised(std::clamp((kSliceLength - time) / (kSliceLength / 2), 0.0, 1.0));
}

double slicePower(const std::vector<double>& bass, double begin, double frequency) {
    std::complex<double> sum = 0;
    const double first = std::max(std::ceil(begin * kBassRate), 0.0);
    const double last = (begin + kSliceLength) * kBassRate;
    for (double i = first; i < last && i < static_cast<double>(bass.size()); ++i) {
        const double weight = sliceWeight(i / kBassRate - begin);
        const double angle = -2 * std::numbers::pi * frequency * i / kBassRate;
        sum += weight * bass[static_cast<std::size_t>(i)] * std::polar(1.0, angle);
    }
    return std::norm(sum);
}

std::vector<double> slice(const std::vector<double>& bass, double begin,
                          const design::LogGrid& grid) {
    std::vector<double> powers;
    for (const double frequency : grid.frequencies())
        powers.push_back(slicePower(bass, begin, frequency));
    auto levels = grid.smooth(powers, kSliceSmoothing);
    std::ranges::transform(levels, levels.begin(), decibels);
    return levels;
}

/// Makes levels relative to the first slice's largest, none below the floor.
void normalise(std::vector<std::vector<double>>& levels) {
    const double top = std::ranges::max(levels.front());
    for (auto& row : levels)
        for (double& level : row)
            level =
                top > kDeepest ? std::clamp(level - top, kWaterfallFloor, 0.0) : kWaterfallFloor;
}

}  // namespace

bool isUsable(const ImpulseResponse& response) {
    return response.sampleRate > 0 && std::isfinite(response.sampleRate) &&
           std::isfinite(response.start) && !response.samples.empty() &&
           std::ranges::all_of(response.samples, [](double x) { return std::isfinite(x); });
}

Line waveform(const ImpulseResponse& response, double arrival, double fullScale) {
    Line line;
    if (fullScale <= 0)
        return line;
    const auto add = [&](std::size_t i) {
        line.push_back(
            {1000 * (timeAt(response, i) - arrival), 100 * response.samples[i] / fullScale});
    };
    forEachColumn(indexAt(response, arrival + kWaveformFrom),
                  indexAt(response, arrival + kWaveformTo), [&](std::size_t from, std::size_t to) {
                      const auto begin = response.samples.begin();
                      const auto [low, high] =
                          std::minmax_element(begin + static_cast<std::ptrdiff_t>(from),
                                              begin + static_cast<std::ptrdiff_t>(to));
                      const auto [first, second] = std::minmax({low - begin, high - begin});
                      add(static_cast<std::size_t>(first));
                      if (second != first)
                          add(static_cast<std::size_t>(second));
                  });
    return line;
}

Line energyTimeCurve(const ImpulseResponse& response, double arrival) {
    const auto power = envelopePower(response.samples);
    const double top = decibels(std::ranges::max(power));
    Line line;
    forEachColumn(
        indexAt(response, arrival + kEnvelopeFrom), indexAt(response, arrival + kEnvelopeTo),
        [&](std::size_t from, std::size_t to) {
            const double largest =
                *std::max_element(power.begin() + static_cast<std::ptrdiff_t>(from),
                                  power.begin() + static_cast<std::ptrdiff_t>(to));
            line.push_back({1000 * (timeAt(response, from) - arrival), decibels(largest) - top});
        });
    return line;
}

Waterfall waterfall(const ImpulseResponse& response, double arrival) {
    const auto bass = measurement::atSampleRate(response.samples, response.sampleRate, kBassRate);
    const design::LogGrid grid(kWaterfallLowest, kWaterfallHighest, kPointsPerOctave);
    Waterfall result{{}, grid.frequencies(), {}};
    for (int i = 0; i < kSlices; ++i) {
        const double time = i * kSliceStep;
        result.times.push_back(1000 * time);
        result.levels.push_back(slice(bass, arrival - response.start + time - kSliceRise, grid));
    }
    normalise(result.levels);
    return result;
}

}  // namespace calibrate::report
