#include "calibrate/measurement/LogSweep.h"

#include "calibrate/measurement/SampleRate.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>

namespace calibrate::measurement {
namespace {

using std::numbers::pi;

double logRatio(const LogSweep& sweep) {
    return std::log(sweep.endFrequency / sweep.startFrequency);
}

void writeSweep(const LogSweep& sweep, std::vector<float>& samples) {
    const double startAngular = (sweep.startFrequency + sweep.startFrequency) * pi;
    const double ratio = std::log((2 * sweep.endFrequency * pi) / startAngular);
    // The phase counts `length` samples, the frequency reaches its end one sample earlier: the
    // device makes it so, and a division by anything else would smear the response.
    const double phaseScale =
        static_cast<double>(sweep.length) * startAngular / sweep.sampleRate / ratio;
    const double step = ratio / static_cast<double>(sweep.length - 1);
    for (std::size_t i = 0; i < sweep.length; ++i)
        samples[i] = static_cast<float>(
            std::sin(phaseScale * (std::exp(static_cast<double>(i) * step) - 1.0)));
}

/// The sample at which the fade-out begins; the sweep's length when there is none.
std::size_t fadeOutStart(const LogSweep& sweep) {
    const double frequency = sweep.endFrequency - sweep.fadeOutTail;
    if (sweep.fadeOutTail <= 1.0 || frequency <= 0)
        return sweep.length;
    const double position = std::log(frequency / sweep.startFrequency) / logRatio(sweep) *
                            static_cast<double>(sweep.length);
    return position < 0 ? sweep.length : static_cast<std::size_t>(std::llround(position));
}

void fadeOut(const LogSweep& sweep, std::vector<float>& samples) {
    const std::size_t start = fadeOutStart(sweep);
    if (start >= sweep.length)
        return;
    const auto step = static_cast<float>(pi / static_cast<double>(sweep.length - start));
    for (std::size_t k = 1; k <= sweep.length - start; ++k)
        samples[start + k - 1] *= (std::cos(static_cast<float>(k) * step) + 1.0F) * 0.5F;
}

}  // namespace

double LogSweep::timeOf(double frequency) const {
    return duration() * std::log(frequency / startFrequency) / logRatio(*this);
}

double LogSweep::harmonicAdvance(unsigned order) const {
    return duration() * std::log(static_cast<double>(order)) / logRatio(*this);
}

double LogSweep::highestCovered() const {
    return fadeOutTail > 1.0 ? endFrequency - 2 * fadeOutTail : 0.93 * endFrequency;
}

LogSweep fullBandSweep(unsigned int sampleRate) {
    LogSweep sweep;
    sweep.sampleRate = sampleRate;
    sweep.endFrequency = sampleRate / 2;
    sweep.length = std::size_t{5} * sampleRate;
    sweep.silence = sampleRate / 2;
    return sweep;
}

std::vector<float> sweepSamples(const LogSweep& sweep) {
    if (sweep.length < 2 || sweep.periods == 0)
        return {};
    const std::size_t period = sweep.length + sweep.silence;
    std::vector<float> samples(period * sweep.periods);
    writeSweep(sweep, samples);
    fadeOut(sweep, samples);
    for (std::size_t start = period; start < samples.size(); start += period)
        std::copy_n(samples.begin(), sweep.length,
                    samples.begin() + static_cast<std::ptrdiff_t>(start));
    return samples;
}

std::vector<double> sweepSamples(const LogSweep& sweep, double sampleRate) {
    const auto samples = sweepSamples(sweep);
    const std::vector<double> wide(samples.begin(), samples.end());
    return atSampleRate(wide, sweep.sampleRate, sampleRate);
}

}  // namespace calibrate::measurement
