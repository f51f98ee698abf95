#include "calibrate/measurement/NoiseGate.h"

#include "calibrate/measurement/Fft.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace calibrate::measurement {
namespace {

constexpr double kLowest = 20;        // Hz; everything below belongs to the first octave
constexpr double kAboveNoise = 1.6;   // times the noise's power: 2 dB
constexpr double kFade = 0.4;         // of the time until the octave has sunk
constexpr double kLead = 0.002;       // s and periods before the onset that are kept: an octave by
constexpr double kLeadPeriods = 8;    // itself rings ahead, and only all together cancel that
constexpr double kBlockPeriods = 8;   // over which an octave's power is averaged
constexpr double kLeastBlock = 0.01;  // s

/// Weights of octave `band` that add up to 1 over all bands at every frequency.
double bandWeight(double frequency, int band, int bands) {
    const double octave = std::log2(std::max(frequency, 1e-3) / kLowest) - band;
    if ((octave < 0 && band == 0) || (octave > 0 && band == bands - 1))
        return 1;
    const double distance = std::abs(octave);
    return distance < 1 ? 0.5 + 0.5 * std::cos(std::numbers::pi * distance) : 0;
}

/// Cuts signals into octaves by their spectra.
class Octaves {
public:
    Octaves(std::span<const double> samples, double sampleRate)
        : length_(samples.size()),
          rate_(sampleRate),
          size_(fftSize(2 * samples.size())),
          spectrum_(forwardFft(samples, size_)) {}

    std::vector<double> octave(int band, int bands) const {
        Spectrum part(spectrum_);
        for (std::size_t bin = 0; bin < part.size(); ++bin)
            part[bin] *= bandWeight(static_cast<double>(bin) * rate_ / static_cast<double>(size_),
                                    band, bands);
        auto samples = inverseFft(part, size_);
        samples.resize(length_);
        return samples;
    }

private:
    std::size_t length_;
    double rate_;
    std::size_t size_;
    Spectrum spectrum_;
};

double meanPower(std::span<const double> samples) {
    double sum = 0;
    for (const double sample : samples)
        sum += sample * sample;
    return samples.empty() ? 0 : sum / static_cast<double>(samples.size());
}

/// Samples after `peak` until a block's power is no more than that of the noise; 0 when it never
/// was.
std::size_t decayLength(std::span<const double> octave, std::size_t peak, std::size_t block,
                        double noise) {
    std::size_t at = peak;
    while (at + block <= octave.size() &&
           meanPower(octave.subspan(at, block)) > kAboveNoise * noise)
        at += block;
    return at == peak ? 0 : at - peak + block;
}

/// The first sample that comes up to a tenth of the largest.
std::size_t onsetOf(std::span<const double> samples) {
    double largest = 0;
    for (const double sample : samples)
        largest = std::max(largest, std::abs(sample));
    const auto first = std::ranges::find_if(
        samples, [&](double sample) { return std::abs(sample) >= 0.1 * largest; });
    return static_cast<std::size_t>(first - samples.begin());
}

void fadeIn(std::vector<double>& octave, std::size_t onset, std::size_t lead) {
    for (std::size_t i = 0; i + lead < onset + 1 && i < octave.size(); ++i) {
        const double part = static_cast<double>(onset - lead - i) / static_cast<double>(lead);
        octave[i] *= part < 1 ? 0.5 + 0.5 * std::cos(std::numbers::pi * part) : 0;
    }
}

void fadeOut(std::vector<double>& octave, std::size_t from, double length) {
    for (std::size_t i = from; i < octave.size(); ++i) {
        const double part = std::min(static_cast<double>(i - from) / length, 1.0);
        octave[i] *= 0.5 + 0.5 * std::cos(std::numbers::pi * part);
    }
}

}  // namespace

ImpulseResponse withoutNoise(const ImpulseResponse& response, std::span<const double> noise,
                             double before) {
    const double rate = response.sampleRate;
    const int bands = static_cast<int>(std::floor(std::log2(0.4 * rate / kLowest))) + 1;
    const Octaves signal(response.samples, rate);
    const Octaves quiet(noise, rate);
    const auto peak =
        std::min(static_cast<std::size_t>(before * rate), response.samples.size() - 1);
    const std::size_t onset = onsetOf(response.samples);
    ImpulseResponse result{rate, std::vector<double>(response.samples.size()), response.start};
    for (int band = 0; band < bands; ++band) {
        auto octave = signal.octave(band, bands);
        const double period = 1 / (kLowest * std::exp2(band));
        const double seconds = std::max(kBlockPeriods * period, kLeastBlock);
        const auto block = static_cast<std::size_t>(seconds * rate);
        const auto length = decayLength(octave, peak, block, meanPower(quiet.octave(band, bands)));
        if (length == 0)
            continue;
        const double lead = kLead + kLeadPeriods * period;
        fadeIn(octave, onset, static_cast<std::size_t>(lead * rate));
        fadeOut(octave, peak + length, std::max(kFade * static_cast<double>(length), 1.0));
        std::ranges::transform(result.samples, octave, result.samples.begin(), std::plus<>());
    }
    return result;
}

}  // namespace calibrate::measurement
