#include "calibrate/run/SweepSeparation.h"

#include "calibrate/measurement/ClockDrift.h"
#include "calibrate/measurement/Fft.h"

#include <algorithm>
#include <cmath>

namespace calibrate::run {
namespace {

using measurement::Deconvolution;
using measurement::DeconvolutionWindow;
using measurement::LogSweep;

constexpr double kClear = 45;        // dB that a response stands out, so that its drift can be told
constexpr double kWorthwhile = 5;    // parts per million of drift; less is uncertain itself
constexpr double kLead = 0.1;        // s of a part before its sweep arrives
constexpr double kMostLeft = 50e-6;  // drift that the sweeps themselves may have left
constexpr std::size_t kOversampling = 8;

/// s by which `later` is `earlier` once more, at the largest value of their correlation. Both have
/// one sample rate and one length.
double delayBetween(const measurement::ImpulseResponse& earlier,
                    const measurement::ImpulseResponse& later) {
    const std::size_t size = measurement::fftSize(2 * earlier.samples.size());
    const auto first = measurement::forwardFft(earlier.samples, size);
    const auto second = measurement::forwardFft(later.samples, size);
    measurement::Spectrum product(size * kOversampling / 2 + 1);
    for (std::size_t bin = 0; bin + 1 < first.size(); ++bin)
        product[bin] = std::conj(first[bin]) * second[bin];
    const auto correlation = measurement::inverseFft(product, size * kOversampling);
    const auto largest = std::ranges::max_element(correlation) - correlation.begin();
    const auto length = static_cast<std::ptrdiff_t>(correlation.size());
    const auto lag = static_cast<double>(largest > length / 2 ? largest - length : largest);
    return later.start - earlier.start + lag / (earlier.sampleRate * kOversampling);
}

class Separator {
public:
    Separator(std::span<const double> recording, double sampleRate, const LogSweep& sweep,
              std::size_t count)
        : recording_(recording), rate_(sampleRate), sweep_(sweep), count_(count) {
        const auto samples = (sweep.length + sweep.silence) * sweep.periods;
        period_ = static_cast<double>(samples) / sweep.sampleRate;
        lead_ = std::min(kLead, static_cast<double>(sweep.silence) / sweep.sampleRate / 2);
    }

    SeparatedSweeps separate(bool closing) {
        SeparatedSweeps result;
        // The loudest response of all: they follow each other period by period.
        const auto loudest = measurement::deconvolve(recording_, rate_, sweep_);
        const double time = std::max(loudest.response.start + DeconvolutionWindow().before, 0.0);
        result.arrival = std::clamp(std::fmod(time, period_), 0.0, rest() - 0.1 * period_);
        correctDrift(loudest, result);
        for (std::size_t i = 0; i < count_; ++i)
            result.parts.push_back(part(i, result.arrival));
        if (closing && count_ > 1)
            straighten(result);
        return result;
    }

private:
    /// s of the recording besides all sweeps but one
    double rest() const {
        return static_cast<double>(recording_.size()) / rate_ -
               static_cast<double>(count_ - 1) * period_;
    }

    std::span<const double> cut(double from, double length) const {
        const auto first = std::min(index(from), recording_.size());
        return recording_.subspan(first, std::min(index(length), recording_.size() - first));
    }

    std::size_t index(double time) const {
        return static_cast<std::size_t>(std::llround(std::max(time, 0.0) * rate_));
    }

    void correctDrift(const Deconvolution& loudest, SeparatedSweeps& result) {
        if (loudest.peakToNoise < kClear)
            return;
        const double drift = measurement::estimateClockDrift(loudest.response, sweep_);
        if (std::abs(drift) < kWorthwhile)
            return;
        result.driftPpm = drift;
        corrected_ = measurement::withoutDrift(recording_, rate_, drift);
        recording_ = corrected_;
    }

    /// Takes out of the origins what drift is left between the first part and the last.
    void straighten(SeparatedSweeps& result) const {
        const auto& first = result.parts.front();
        const auto& last = result.parts.back();
        if (std::min(first.deconvolution.peakToNoise, last.deconvolution.peakToNoise) < kClear)
            return;
        const double steps = static_cast<double>(count_ - 1);
        const double perStep =
            (delayBetween(first.deconvolution.response, last.deconvolution.response) + last.origin -
             first.origin) /
            steps;
        if (std::abs(perStep) > kMostLeft * period_)
            return;
        for (std::size_t i = 0; i < count_; ++i)
            result.parts[i].origin -= perStep * static_cast<double>(i);
        result.driftPpm += 1e6 * perStep / period_;
    }

    SeparatedSweep part(std::size_t number, double arrival) const {
        const double from = arrival - lead_ + static_cast<double>(number) * period_;
        const auto samples = cut(from, period_);
        const double begin = static_cast<double>(std::min(index(from), recording_.size())) / rate_;
        return {{samples.begin(), samples.end()},
                measurement::deconvolve(samples, rate_, sweep_),
                begin - static_cast<double>(number) * period_};
    }

    std::span<const double> recording_;
    std::vector<double> corrected_;
    const double rate_;
    const LogSweep& sweep_;
    const std::size_t count_;
    double period_;
    double lead_;
};

}  // namespace

SeparatedSweeps separateSweeps(std::span<const double> recording, double sampleRate,
                               const LogSweep& sweep, std::size_t count, bool closing) {
    return Separator(recording, sampleRate, sweep, count).separate(closing);
}

}  // namespace calibrate::run
