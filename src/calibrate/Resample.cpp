#include "calibrate/Resample.h"

#include "calibrate/FrequencyResponse.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>
#include <utility>

namespace calibrate {
namespace {

/// Delays that are tried, in samples; 32 suffice for a filter that starts with a full step.
constexpr std::size_t kDelays[] = {0, 4, 8, 16, 32};

/// Samples that the end of a filter may ring on.
constexpr std::size_t kTail = 32;

/// Parts of the lower Nyquist frequency: up to where the fit counts, and up to where it is judged.
constexpr double kPassband = 0.93;
constexpr double kJudgedBand = 20'000.0 / 22'050.0;

/// How much the response outside the passband may weigh; the least is taken with which it is no
/// louder than the original at its loudest by more than kMostExcess, a factor.
constexpr double kOutsideWeights[] = {1e-6, 1e-5, 1e-4, 1e-3, 1e-2, 1e-1};
constexpr double kMostExcess = std::numbers::sqrt2;
constexpr std::size_t kOutsideFrequencies = 200;

/// A response is judged relative to itself, but never to less than this part of its largest value:
/// nobody hears the exact depth of a notch.
constexpr double kDeepest = 0.01;

constexpr std::size_t kJudgedFrequencies = 1000;

/// What a target tap contributes at distance `time`, in target samples, from a source tap: the
/// mean of the response over a band that ends at `edge` (1: the target's Nyquist frequency).
double bandKernel(double time, double edge) {
    const double angle = std::numbers::pi * time;
    return std::abs(time) < 1e-9 ? edge : std::sin(edge * angle) / angle;
}

/// Solves T x = y, T symmetric, positive definite and Toeplitz with `row` as first row, by
/// Levinson's recursion.
std::vector<double> solveToeplitz(const std::vector<double>& row, const std::vector<double>& y) {
    std::vector<double> forward{1 / row[0]};  // solves for the first unit vector
    std::vector<double> x{y[0] / row[0]};
    std::vector<double> next;
    for (std::size_t n = 1; n < y.size(); ++n) {
        double forwardError = 0;
        double solutionError = 0;
        for (std::size_t i = 0; i < n; ++i) {
            forwardError += row[n - i] * forward[i];
            solutionError += row[n - i] * x[i];
        }
        const double scale = 1 / (1 - forwardError * forwardError);
        forward.push_back(0);
        next.resize(n + 1);
        for (std::size_t i = 0; i <= n; ++i)
            next[i] = scale * (forward[i] - forwardError * forward[n - i]);
        std::swap(forward, next);
        x.push_back(0);
        for (std::size_t i = 0; i <= n; ++i)
            x[i] += (y[n] - solutionError) * forward[n - i];
    }
    return x;
}

/// The least-squares fit of one filter, for any delay.
class Fit {
public:
    Fit(const ResampleInput& source, double sampleRate, std::size_t maxTaps)
        : source_(source),
          ratio_(sampleRate / source.sampleRate),
          maxTaps_(maxTaps),
          bandLimit_(std::min(1.0, 1 / ratio_)),
          passband_(kPassband * bandLimit_) {
        measureSource();
        correlate();
    }

    std::vector<double> solve(std::size_t delay) const {
        std::vector<double> taps;
        for (const double weight : kOutsideWeights) {
            taps = solve(delay, weight);
            if (loudest(taps, passband_, 1) <= mostOutside_)
                break;
        }
        return taps;
    }

    /// Largest deviation of `taps` from the delayed source, in dB, up to the judged band's edge.
    double deviation(std::span<const double> taps, std::size_t delay) const {
        double largest = 0;
        for (std::size_t i = 0; i < kJudgedFrequencies && loudest_ > 0; ++i) {
            const double cycles = judgedFrequency(i);
            const auto wanted = response_[i] * std::polar(1.0, -2 * std::numbers::pi * cycles *
                                                                   static_cast<double>(delay));
            const double error = std::abs(responseAt(taps, cycles) - wanted);
            largest = std::max(largest, error / std::max(std::abs(wanted), kDeepest * loudest_));
        }
        return 20 * std::log10(1 + largest);
    }

    double energyBeyond(std::size_t count, std::size_t delay) const {
        return calibrate::energyBeyond(source_.taps, ratio_, count, delay);
    }

private:
    static constexpr std::size_t kMaxDelay = kDelays[std::size(kDelays) - 1];

    /// In cycles per target sample; the last is the judged band's edge.
    double judgedFrequency(std::size_t i) const {
        return 0.5 * bandLimit_ * kJudgedBand * static_cast<double>(i + 1) /
               static_cast<double>(kJudgedFrequencies);
    }

    void measureSource() {
        response_.resize(kJudgedFrequencies);
        for (std::size_t i = 0; i < kJudgedFrequencies; ++i) {
            response_[i] = responseAt(source_.taps, judgedFrequency(i) * ratio_);
            loudest_ = std::max(loudest_, std::abs(response_[i]));
        }
        mostOutside_ = kMostExcess * std::max(loudest_, loudest(source_.taps, passband_ * ratio_,
                                                                bandLimit_ * ratio_));
    }

    /// The largest response between two frequencies, in parts of the taps' Nyquist frequency.
    static double loudest(std::span<const double> taps, double from, double to) {
        double largest = 0;
        for (std::size_t i = 0; i <= kOutsideFrequencies; ++i) {
            const double part = static_cast<double>(i) / static_cast<double>(kOutsideFrequencies);
            const double cycles = 0.5 * (from + (to - from) * part);
            largest = std::max(largest, std::abs(responseAt(taps, cycles)));
        }
        return largest;
    }

    std::size_t count(std::size_t delay) const {
        return std::min(maxTaps_, resampledLength(source_.taps.size(), ratio_) + delay + kTail);
    }

    /// What each target tap has in common with the source, in the passband and in the whole band,
    /// from kMaxDelay taps before the source's start.
    void correlate() {
        inPassband_.resize(kMaxDelay + count(kMaxDelay));
        inBand_.resize(inPassband_.size());
        // Source taps that lie later than any target tap have next to nothing in common with them.
        const double reach = static_cast<double>(maxTaps_ + kTail) / ratio_ + 1;
        const auto sources =
            static_cast<std::size_t>(std::min(static_cast<double>(source_.taps.size()), reach));
        for (std::size_t n = 0; n < inPassband_.size(); ++n) {
            const double time = static_cast<double>(n) - static_cast<double>(kMaxDelay);
            for (std::size_t k = 0; k < sources; ++k) {
                const double distance = time - static_cast<double>(k) * ratio_;
                inPassband_[n] += source_.taps[k] * bandKernel(distance, passband_);
                inBand_[n] += source_.taps[k] * bandKernel(distance, bandLimit_);
            }
        }
    }

    std::vector<double> solve(std::size_t delay, double outsideWeight) const {
        std::vector<double> row(count(delay));
        std::vector<double> wanted(row.size());
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::size_t n = kMaxDelay - delay + i;
            row[i] = (1 - outsideWeight) * bandKernel(static_cast<double>(i), passband_);
            wanted[i] = (1 - outsideWeight) * inPassband_[n] + outsideWeight * inBand_[n];
        }
        row[0] += outsideWeight;
        return solveToeplitz(row, wanted);
    }

    const ResampleInput source_;
    const double ratio_;  // target rate over source rate
    const std::size_t maxTaps_;
    const double bandLimit_;  // lower Nyquist frequency, in parts of the target's
    const double passband_;   // the same unit
    std::vector<std::complex<double>> response_;  // the source's, at the judged frequencies
    double loudest_{0};                           // the largest of these
    double mostOutside_{0};                       // how loud the result may be above the passband
    std::vector<double> inPassband_;
    std::vector<double> inBand_;
};

Resampled resampleWithDelay(const std::vector<Fit>& fits, std::size_t delay) {
    Resampled result;
    result.delay = delay;
    for (const auto& fit : fits) {
        result.taps.push_back(fit.solve(delay));
        const auto& taps = result.taps.back();
        result.deviation = std::max(result.deviation, fit.deviation(taps, delay));
        result.lostEnergy = std::max(result.lostEnergy, fit.energyBeyond(taps.size(), delay));
    }
    return result;
}

double judgedBandEdge(const std::vector<ResampleInput>& filters, double sampleRate) {
    double lowest = sampleRate;
    for (const auto& filter : filters)
        lowest = std::min(lowest, filter.sampleRate);
    return kJudgedBand * lowest / 2;
}

}  // namespace

double energyBeyond(std::span<const double> taps, double rateRatio, std::size_t count,
                    std::size_t delay) {
    double total = 0;
    double beyond = 0;
    for (std::size_t i = 0; i < taps.size(); ++i) {
        const double energy = taps[i] * taps[i];
        const double time = static_cast<double>(i) * rateRatio + static_cast<double>(delay);
        total += energy;
        beyond += time > static_cast<double>(count) - 1 ? energy : 0;
    }
    return total > 0 ? beyond / total : 0;
}

std::size_t resampledLength(std::size_t taps, double rateRatio) {
    const double last = static_cast<double>(taps - 1) * rateRatio;
    return static_cast<std::size_t>(std::ceil(last - 1e-9)) + 1;
}

Resampled resample(const std::vector<ResampleInput>& filters, double sampleRate,
                   std::size_t maxTaps, bool mayDelay) {
    std::vector<Fit> fits;
    fits.reserve(filters.size());
    for (const auto& filter : filters)
        fits.emplace_back(filter, sampleRate, maxTaps);
    Resampled best = resampleWithDelay(fits, kDelays[0]);
    for (std::size_t i = 1; i < std::size(kDelays) && mayDelay; ++i) {
        if (best.deviation <= kAllowedDeviation || kDelays[i] >= maxTaps)
            break;
        Resampled candidate = resampleWithDelay(fits, kDelays[i]);
        if (candidate.deviation < best.deviation)
            best = std::move(candidate);
    }
    best.bandEdge = judgedBandEdge(filters, sampleRate);
    return best;
}

}  // namespace calibrate
