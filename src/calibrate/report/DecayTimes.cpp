#include "calibrate/report/DecayTimes.h"

#include "calibrate/measurement/Fft.h"
#include "calibrate/measurement/SampleRate.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>

namespace calibrate::report {
namespace {

using measurement::ImpulseResponse;
using measurement::Spectrum;

constexpr double kRate = 2'000;   // Hz, enough for the bass
constexpr int kLowestBand = -16;  // tenths of a decade from 1 kHz: 25 Hz
constexpr int kHighestBand = -6;  // 250 Hz
const double kBandwidth = std::exp2(1.0 / 6) - std::exp2(-1.0 / 6);  // of the centre

constexpr double kBegin = -5;           // dB, where the line begins
constexpr double kMargin = 10;          // dB that noise keeps below the line's end
constexpr double kNonlinearity = 50;    // per mille
constexpr double kFilterDecay = 4;      // over the bandwidth; for a filter run backwards
constexpr double kGone = 1e-9;          // of the largest power: nothing but what a fade has left
constexpr double kFadeStart = 1 / 1.4;  // of the time until a response is faded out (NoiseGate)
constexpr std::size_t kLeastSamples = 16;
constexpr double kLongest = 20;  // s

/// A third-order Butterworth band-pass around `centre`, without phase of its own but run backwards:
/// what it rings comes before the sound that it belongs to, and leaves the decay alone.
std::complex<double> reversedBandPass(double frequency, double centre) {
    const double detuning = (frequency / centre - centre / frequency) / kBandwidth;
    const std::complex<double> s(0, detuning);
    return std::conj(1.0 / ((s + 1.0) * (s * s + s + 1.0)));
}

/// Cuts a response into bands.
class Bands {
public:
    explicit Bands(const std::vector<double>& samples)
        : length_(samples.size()),
          size_(measurement::fftSize(4 * samples.size())),
          spectrum_(measurement::forwardFft(samples, size_)) {}

    std::vector<double> power(double centre) const {
        Spectrum band(spectrum_);
        band.front() = 0;
        for (std::size_t bin = 1; bin < band.size(); ++bin)
            band[bin] *= reversedBandPass(
                static_cast<double>(bin) * kRate / static_cast<double>(size_), centre);
        auto samples = measurement::inverseFft(band, size_);
        samples.resize(length_);
        for (double& sample : samples)
            sample *= sample;
        return samples;
    }

private:
    std::size_t length_;
    std::size_t size_;
    Spectrum spectrum_;
};

/// The energy from each sample on (Schroeder, 1965).
std::vector<double> backwardIntegral(const std::vector<double>& power) {
    std::vector<double> energy(power);
    for (std::size_t i = energy.size() - 1; i > 0; --i)
        energy[i - 1] += energy[i];
    return energy;
}

/// Samples until the response begins to fade out, or a little before it ends.
std::size_t trueLength(const std::vector<double>& power) {
    const double gone = kGone * std::ranges::max(power);
    std::size_t end = power.size();
    while (end > 0 && power[end - 1] <= gone)
        --end;
    return static_cast<std::size_t>(kFadeStart * static_cast<double>(end));
}

struct Fit {
    double slope;         // dB by sample
    double nonlinearity;  // per mille
};

/// The straight line through levels (dB) by least squares.
Fit fitted(const std::vector<double>& levels) {
    const double count = static_cast<double>(levels.size());
    const double middle = (count - 1) / 2;
    double mean = 0;
    for (const double level : levels)
        mean += level / count;
    double xx = 0;
    double xy = 0;
    double yy = 0;
    for (std::size_t i = 0; i < levels.size(); ++i) {
        const double x = static_cast<double>(i) - middle;
        const double y = levels[i] - mean;
        xx += x * x;
        xy += x * y;
        yy += y * y;
    }
    return {xy / xx, 1'000 * (1 - xy * xy / (xx * yy))};
}

/// The levels (dB) of a backward integral while it is true.
std::vector<double> levelsOf(const std::vector<double>& energy, std::size_t trueEnd) {
    std::vector<double> levels;
    for (std::size_t i = 0; i < trueEnd; ++i)
        levels.push_back(10 * std::log10(energy[i] / energy.front()));
    return levels;
}

/// dB that the line may cover; 0: noise hides too much.
int rangeOf(const std::vector<double>& levels) {
    for (const int range : {30, 20})
        if (!levels.empty() && levels.back() <= kBegin - range - kMargin)
            return range;
    return 0;
}

DecayTime decayTime(double centre, const std::vector<double>& power) {
    if (std::ranges::max(power) <= std::numeric_limits<double>::min())
        return {};
    auto levels = levelsOf(backwardIntegral(power), trueLength(power));
    const int range = rangeOf(levels);
    std::erase_if(levels, [&](double level) { return level > kBegin || level < kBegin - range; });
    if (levels.size() < 3)
        return {};
    const Fit fit = fitted(levels);
    const double time = -60 / (fit.slope * kRate);
    const bool isMeasurable = fit.nonlinearity <= kNonlinearity && time < kLongest &&
                              time * kBandwidth * centre >= kFilterDecay;
    return isMeasurable ? DecayTime{0, time, fit.nonlinearity, range} : DecayTime();
}

/// What comes from the direct sound on.
std::vector<double> fromArrival(const ImpulseResponse& response, double arrival) {
    const auto samples = measurement::atSampleRate(response.samples, response.sampleRate, kRate);
    const double first = std::clamp(std::round((arrival - response.start) * kRate), 0.0,
                                    static_cast<double>(samples.size()));
    return {samples.begin() + static_cast<std::ptrdiff_t>(first), samples.end()};
}

/// The centres as they are called: 31.5, not 31.623.
double nominal(int band) {
    static constexpr double kNames[] = {1000, 1250, 1600, 2000, 2500, 3150, 4000, 5000, 6300, 8000};
    const int place = ((band % 10) + 10) % 10;
    return kNames[place] / std::pow(10.0, (place - band) / 10);
}

}  // namespace

std::vector<DecayTime> decayTimes(const ImpulseResponse& response, double arrival) {
    auto samples = fromArrival(response, arrival);
    samples.resize(std::max(samples.size(), kLeastSamples));
    const Bands bands(samples);
    std::vector<DecayTime> times;
    for (int band = kLowestBand; band <= kHighestBand; ++band) {
        const double centre = 1'000 * std::pow(10.0, band / 10.0);
        times.push_back(decayTime(centre, bands.power(centre)));
        times.back().frequency = nominal(band);
    }
    return times;
}

}  // namespace calibrate::report
