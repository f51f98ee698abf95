#include "calibrate/measurement/ClockDrift.h"

#include "calibrate/measurement/Fft.h"
#include "calibrate/measurement/SampleRate.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace calibrate::measurement {
namespace {

constexpr double kLowest = 500;   // Hz
constexpr double kReach = 0.06;   // s on both sides of the largest sample
constexpr double kCoarse = 8e-6;  // less than half of the compactness's width
constexpr int kRefinements = 16;
constexpr std::size_t kOversampling = 4;

/// The band above kLowest around the largest sample, with any drift taken out.
class Undrifted {
public:
    Undrifted(const ImpulseResponse& response, const LogSweep& sweep)
        : rate_(response.sampleRate), sweep_(sweep) {
        const auto around = cutAround(response);
        size_ = fftSize(around.size() * 2);
        spectrum_ = forwardFft(around, size_);
        highest_ = std::min(sweep.highestCovered(), 0.45 * rate_);
    }

    bool reachesHighEnough() const { return highest_ > 4 * kLowest; }

    /// Fourth moment of the response's samples over the square of their energy.
    double compactness(double drift) const {
        // The fourth power has four times the bandwidth, and must not depend on where between two
        // samples the peak falls.
        Spectrum turned(size_ * kOversampling / 2 + 1);
        for (std::size_t bin = 0; bin < spectrum_.size(); ++bin) {
            const double frequency = static_cast<double>(bin) * rate_ / static_cast<double>(size_);
            if (frequency > kLowest && frequency < highest_)
                turned[bin] = spectrum_[bin] * std::polar(1.0, drift * delayIntegral(frequency));
        }
        double second = 0;
        double fourth = 0;
        for (const double sample : inverseFft(turned, size_ * kOversampling)) {
            second += sample * sample;
            fourth += sample * sample * sample * sample;
        }
        return second > 0 ? fourth / (second * second) : 0;
    }

private:
    static std::vector<double> cutAround(const ImpulseResponse& response) {
        const auto& samples = response.samples;
        const auto peak =
            std::ranges::max_element(samples, {}, [](double x) { return std::abs(x); });
        const auto reach = static_cast<std::ptrdiff_t>(kReach * response.sampleRate);
        return {peak - std::min(reach, peak - samples.begin()),
                peak + std::min(reach, samples.end() - peak)};
    }

    /// Phase of a drift of 1 at a frequency: the delay, integrated over the angular frequency.
    double delayIntegral(double frequency) const {
        const double perRatio =
            sweep_.duration() / std::log(sweep_.endFrequency / sweep_.startFrequency);
        return 2 * std::numbers::pi * perRatio * frequency *
               (std::log(frequency / sweep_.startFrequency) - 1);
    }

    double rate_;
    LogSweep sweep_;
    std::size_t size_{0};
    Spectrum spectrum_;
    double highest_{0};
};

double coarseDrift(const Undrifted& response) {
    const int steps = static_cast<int>(kLargestDrift * 1e-6 / kCoarse);
    double best = 0;
    double most = 0;
    for (int step = -steps; step <= steps; ++step) {
        const double compactness = response.compactness(step * kCoarse);
        if (compactness > most) {
            most = compactness;
            best = step * kCoarse;
        }
    }
    return best;
}

double refinedDrift(const Undrifted& response, double from, double to) {
    for (int i = 0; i < kRefinements; ++i) {
        const double third = (to - from) / 3;
        if (response.compactness(from + third) < response.compactness(to - third))
            from += third;
        else
            to -= third;
    }
    return (from + to) / 2;
}

}  // namespace

double estimateClockDrift(const ImpulseResponse& response, const LogSweep& sweep) {
    const Undrifted undrifted(response, sweep);
    if (!undrifted.reachesHighEnough())
        return 0;
    const double coarse = coarseDrift(undrifted);
    return 1e6 * refinedDrift(undrifted, coarse - kCoarse, coarse + kCoarse);
}

std::vector<double> withoutDrift(std::span<const double> recording, double sampleRate,
                                 double driftPpm) {
    return atSampleRate(recording, sampleRate * (1 + driftPpm * 1e-6), sampleRate);
}

}  // namespace calibrate::measurement
