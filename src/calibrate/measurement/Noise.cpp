#include "calibrate/measurement/Noise.h"

#include "calibrate/measurement/PowerSpectrum.h"

#include <algorithm>
#include <cmath>

namespace calibrate::measurement {
namespace {

constexpr double kLeastSilence = 0.1;   // s
constexpr double kNearFullScale = 0.5;  // converters that clip early are caught by the run's length
constexpr double kFlat = 1e-4;          // of full scale
constexpr std::size_t kShortestRun = 3;

double power(std::span<const double> samples) {
    double sum = 0;
    for (const double sample : samples)
        sum += sample * sample;
    return samples.empty() ? 0 : sum / static_cast<double>(samples.size());
}

double octaveEnergy(const PowerSpectrum& spectrum, double middle) {
    return spectrum.sum(middle * std::sqrt(0.5), middle * std::sqrt(2.0)) /
           static_cast<double>(spectrum.power().size());
}

}  // namespace

double levelOf(std::span<const double> samples) {
    return 10 * std::log10(std::max(power(samples), 1e-30));
}

double largestSample(std::span<const double> samples) {
    double peak = 0;
    for (const double sample : samples)
        peak = std::max(peak, std::abs(sample));
    return peak;
}

std::vector<BandRatio> signalToNoise(std::span<const double> recording,
                                     std::span<const double> silence, double sampleRate,
                                     const LogSweep& sweep) {
    const double seconds = static_cast<double>(silence.size()) / sampleRate;
    if (seconds < kLeastSilence)
        return {};
    const auto heard = PowerSpectrum(recording, sampleRate);
    const auto noise = PowerSpectrum(silence, sampleRate);
    const double total = static_cast<double>(recording.size()) / sampleRate;
    const double dwell = sweep.harmonicAdvance(2);
    std::vector<BandRatio> ratios;
    for (double middle = 31.5; middle < 17'000; middle *= 2) {
        if (middle * std::sqrt(2.0) > std::min(sweep.highestCovered(), sampleRate / 2) ||
            middle < sweep.lowestCovered())
            continue;
        const double perSecond = octaveEnergy(noise, middle) / seconds;
        const double signal = octaveEnergy(heard, middle) - perSecond * total;
        const double ratio = std::max(signal, 1e-30) / dwell / std::max(perSecond, 1e-30);
        ratios.push_back({middle, 10 * std::log10(ratio)});
    }
    return ratios;
}

std::size_t clippedSamples(std::span<const double> samples) {
    double largest = 0;
    for (const double sample : samples)
        largest = std::max(largest, std::abs(sample));
    if (largest < kNearFullScale)
        return 0;
    std::size_t clipped = 0;
    std::size_t run = 0;
    double sign = 0;
    const auto close = [&] {
        clipped += run >= kShortestRun ? run : 0;
        run = 0;
    };
    for (const double sample : samples) {
        const bool atTop = std::abs(sample) >= largest - kFlat;
        if (!atTop || (run > 0 && sample * sign < 0))
            close();
        run += atTop ? 1 : 0;
        sign = sample;
    }
    close();
    return clipped;
}

}  // namespace calibrate::measurement
