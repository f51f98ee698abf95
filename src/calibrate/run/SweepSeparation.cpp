#include "calibrate/run/SweepSeparation.h"

#include "calibrate/measurement/ClockDrift.h"

#include <algorithm>
#include <cmath>

namespace calibrate::run {
namespace {

using measurement::Deconvolution;
using measurement::DeconvolutionWindow;
using measurement::LogSweep;

constexpr double kClear = 45;      // dB that a response stands out, so that its drift can be told
constexpr double kWorthwhile = 5;  // parts per million of drift; less is uncertain itself
constexpr double kLead = 0.1;      // s of a part before its sweep arrives

class Separator {
public:
    Separator(std::span<const double> recording, double sampleRate, const LogSweep& sweep,
              std::size_t count)
        : recording_(recording), rate_(sampleRate), sweep_(sweep), count_(count) {
        const auto samples = (sweep.length + sweep.silence) * sweep.periods;
        period_ = static_cast<double>(samples) / sweep.sampleRate;
        lead_ = std::min(kLead, static_cast<double>(sweep.silence) / sweep.sampleRate / 2);
    }

    SeparatedSweeps separate() {
        SeparatedSweeps result;
        // The loudest response of all: they follow each other period by period.
        const auto loudest = measurement::deconvolve(recording_, rate_, sweep_);
        const double time = std::max(loudest.response.start + DeconvolutionWindow().before, 0.0);
        result.arrival = std::clamp(std::fmod(time, period_), 0.0, rest() - 0.1 * period_);
        correctDrift(loudest, result);
        for (std::size_t i = 0; i < count_; ++i)
            result.parts.push_back(part(i, result.arrival));
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
                               const LogSweep& sweep, std::size_t count) {
    return Separator(recording, sampleRate, sweep, count).separate();
}

}  // namespace calibrate::run
