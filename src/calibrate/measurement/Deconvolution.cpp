#include "calibrate/measurement/Deconvolution.h"

#include "calibrate/measurement/Fft.h"
#include "calibrate/measurement/NoiseGate.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace calibrate::measurement {
namespace {

constexpr unsigned kHighestOrder = 5;

/// Regularisation relative to the sweep's power at the same frequency: nothing that counts within
/// the sweep's range, all above it.
constexpr double kInBand = 1e-10;
constexpr double kOutOfBand = 1.0;

/// Octaves below the sweep's start over which its response ends. The sweep starts abruptly and so
/// has power there too. A steep end would ring longer, and further ahead, than the response is
/// kept.
constexpr double kLowEnd = 2;

/// Weight from 0 (up to the sweep's upper end) to 1 (above it) on a logarithmic frequency axis.
double above(const LogSweep& sweep, double frequency) {
    const double covered = sweep.highestCovered();
    const double highest = sweep.fadeOutTail > 1 ? sweep.endFrequency - sweep.fadeOutTail / 2
                                                 : 1.1 * sweep.endFrequency;
    return std::clamp(std::log(frequency / covered) / std::log(highest / covered), 0.0, 1.0);
}

/// Weight from 1 (from the sweep's start on) to 0, a raised cosine on a logarithmic axis.
double lowEnd(const LogSweep& sweep, double frequency) {
    const double octaves = std::log2(sweep.startFrequency / frequency);
    return 0.5 + 0.5 * std::cos(std::numbers::pi * std::clamp(octaves / kLowEnd, 0.0, 1.0));
}

/// The power that a sweep's spectrum has at a frequency, by its dwell there.
double expectedPower(const LogSweep& sweep, double frequency, double sampleRate) {
    const double within = std::clamp(frequency, sweep.startFrequency, sweep.endFrequency);
    const double perOctave = sweep.duration() / std::log(sweep.endFrequency / sweep.startFrequency);
    return sampleRate * sampleRate * perOctave / within / 4 *
           static_cast<double>(sweep.periods * sweep.periods);
}

std::vector<double> divide(std::span<const double> recording, double sampleRate,
                           const LogSweep& sweep) {
    const auto played = sweepSamples(sweep, sampleRate);
    const std::size_t size = fftSize(recording.size() + played.size());
    Spectrum quotient = forwardFft(recording, size);
    const Spectrum divisor = forwardFft(played, size);
    for (std::size_t bin = 0; bin < quotient.size(); ++bin) {
        const double frequency =
            std::max(static_cast<double>(bin), 0.5) * sampleRate / static_cast<double>(size);
        const double share = std::pow(kInBand / kOutOfBand, 1 - above(sweep, frequency));
        const double floor = share * kOutOfBand * expectedPower(sweep, frequency, sampleRate);
        quotient[bin] *=
            lowEnd(sweep, frequency) * std::conj(divisor[bin]) / (std::norm(divisor[bin]) + floor);
    }
    return inverseFft(quotient, size);
}

/// The quotient as a ring: times before 0 stand at its end.
class Ring {
public:
    explicit Ring(std::vector<double> samples, double sampleRate)
        : samples_(std::move(samples)), rate_(sampleRate) {}

    /// s
    double peakTime() const {
        const auto peak =
            std::ranges::max_element(samples_, {}, [](double sample) { return std::abs(sample); });
        const auto index = static_cast<std::size_t>(peak - samples_.begin());
        const double position = static_cast<double>(index);
        return (index > samples_.size() * 3 / 4 ? position - static_cast<double>(samples_.size())
                                                : position) /
               rate_;
    }

    std::vector<double> cut(double start, double length) const {
        const auto size = static_cast<long long>(samples_.size());
        const auto count = std::clamp(std::llround(length * rate_), 1LL, size);
        const long long first = std::llround(start * rate_);
        std::vector<double> result(static_cast<std::size_t>(count));
        for (long long i = 0; i < count; ++i)
            result[static_cast<std::size_t>(i)] =
                samples_[static_cast<std::size_t>(((first + i) % size + size) % size)];
        return result;
    }

    double energy(double start, double length) const {
        double sum = 0;
        for (const double sample : cut(start, length))
            sum += sample * sample;
        return sum;
    }

private:
    std::vector<double> samples_;
    double rate_;
};

double decibels(double powerRatio) {
    return 10 * std::log10(std::max(powerRatio, 1e-30));
}

/// What stands between the second harmonic's place and the response: noise.
std::vector<double> noiseBefore(const Ring& ring, double peak, const LogSweep& sweep,
                                double before) {
    const double gap = sweep.harmonicAdvance(2);
    const double start = peak - 0.6 * gap;
    const double length = std::max(peak - std::min(1.5 * before, 0.3 * gap) - start, 0.05 * gap);
    return ring.cut(start, length);
}

/// Energy by the second.
double powerOf(const std::vector<double>& samples, double sampleRate) {
    double sum = 0;
    for (const double sample : samples)
        sum += sample * sample;
    return sum * sampleRate / static_cast<double>(samples.size());
}

std::vector<Distortion> distortionOf(const Ring& ring, double peak, const LogSweep& sweep,
                                     double noise) {
    std::vector<Distortion> products;
    const double linear = ring.energy(peak - 0.002, 0.2);
    for (unsigned order = 2; order <= kHighestOrder; ++order) {
        const double advance = sweep.harmonicAdvance(order);
        const double length = std::min(0.2, 0.8 * (advance - sweep.harmonicAdvance(order - 1)));
        const double energy = ring.energy(peak - advance - 0.002, length) - noise * length;
        products.push_back({order, decibels(energy / std::max(linear, 1e-300))});
    }
    return products;
}

}  // namespace

Deconvolution deconvolve(std::span<const double> recording, double sampleRate,
                         const LogSweep& sweep, const DeconvolutionWindow& window) {
    const Ring ring(divide(recording, sampleRate, sweep), sampleRate);
    const double peak = ring.peakTime();
    const double start = std::round((peak - window.before) * sampleRate) / sampleRate;
    const auto noiseSamples = noiseBefore(ring, peak, sweep, window.before);
    const double noise = powerOf(noiseSamples, sampleRate);
    const double largest = ring.energy(peak, 0);
    Deconvolution result;
    result.response = withoutNoise({sampleRate, ring.cut(start, window.length), start},
                                   noiseSamples, window.before);
    result.distortion = distortionOf(ring, peak, sweep, noise);
    result.peakToNoise = decibels(largest / std::max(noise / sampleRate, 1e-300));
    return result;
}

}  // namespace calibrate::measurement
