#include "modules/dirac/StimulusGenerators.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <limits>
#include <numbers>
#include <optional>

namespace {

using std::numbers::pi;

/// The sweep with its silences, all silent as yet; none when the sizes make no signal.
std::optional<std::vector<float>> silentPeriods(unsigned length, unsigned silence,
                                                unsigned numPeriods) {
    const std::uint64_t period = std::uint64_t{length} + silence;
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint32_t>::max();
    if (length < 2 || numPeriods == 0 || period > kMost / numPeriods)
        return std::nullopt;
    return std::vector<float>(period * numPeriods, 0.0F);
}

void sweep(std::vector<float>& samples, double startFreq, double endFreq, unsigned length,
           double sampleRate) {
    const double startAngular = (startFreq + startFreq) * pi;
    const double logRatio = std::log((endFreq + endFreq) * pi / startAngular);
    // The phase is scaled by the length, while the steps make the last sample reach endFreq.
    const double phaseScale = length * startAngular / sampleRate / logRatio;
    const double step = logRatio / (length - 1);
    for (unsigned i = 0; i < length; ++i)
        samples[i] = static_cast<float>(std::sin(phaseScale * (std::exp(i * step) - 1.0)));
}

/// The sample at which the sweep passes endFreq - fadeOutTailHz, modulo 2^32; none when it never
/// does.
std::optional<std::uint32_t> fadeOutStart(double startFreq, double endFreq, unsigned length,
                                          double fadeOutTailHz) {
    const double position =
        std::log((endFreq - fadeOutTailHz) / startFreq) / std::log(endFreq / startFreq) * length;
    if (!(std::abs(position) < 0x1p62))
        return std::nullopt;
    return static_cast<std::uint32_t>(std::llround(position));
}

void fadeOut(std::vector<float>& samples, unsigned start, unsigned length) {
    if (start >= length)
        return;
    const auto step = static_cast<float>(pi / static_cast<double>(length - start));
    for (unsigned k = 1; k <= length - start; ++k)
        samples[start + k - 1] *= (std::cos(static_cast<float>(k) * step) + 1.0F) * 0.5F;
}

void repeatSweep(std::vector<float>& samples, unsigned length, unsigned numPeriods) {
    const std::size_t period = samples.size() / numPeriods;
    for (std::size_t start = period; start < samples.size(); start += period)
        std::copy_n(samples.begin(), length, samples.begin() + static_cast<std::ptrdiff_t>(start));
}

/// Uniform numbers in [-0.5, 0.5) from a linear congruential generator.
class UniformNoise {
public:
    explicit UniformNoise(std::uint32_t seed) : state_(seed) {}

    float next() {
        state_ = state_ * 196314165U + 907633515U;
        // The upper bits become the mantissa of a float in [2, 4).
        return (std::bit_cast<float>((state_ >> 9U) | 0x40000000U) - 3.0F) * 0.5F;
    }

private:
    std::uint32_t state_;
};

/// Sum of rows that are renewed at octave-spaced intervals, and a white component: about -3 dB per
/// octave.
class PinkNoise {
public:
    explicit PinkNoise(std::uint32_t seed) : noise_(seed) {}

    float next() {
        ++count_;
        renewRow(std::min<std::size_t>(static_cast<std::size_t>(std::countr_zero(count_)),
                                       rows_.size() - 1));
        return (noise_.next() + sum_) * 0.125F;
    }

private:
    static constexpr float kSumLimit = 4.0F;

    void renewRow(std::size_t row) {
        float value = noise_.next();
        while (!addToSum(value - rows_[row]))
            value = noise_.next();
        rows_[row] = value;
    }

    bool addToSum(float difference) {
        sum_ += difference;
        if (sum_ >= -kSumLimit && sum_ <= kSumLimit)
            return true;
        sum_ -= difference;
        return false;
    }

    UniformNoise noise_;
    std::uint32_t count_{0};
    std::array<float, 5> rows_{};
    float sum_{0.0F};
};

}  // namespace

std::vector<float> generateLogSweep(double startFreq, double endFreq, unsigned int length,
                                    unsigned int silence, unsigned int numPeriods,
                                    double sampleRate, double fadeOutTailHz) {
    auto samples = silentPeriods(length, silence, numPeriods);
    if (!samples)
        return {};
    sweep(*samples, startFreq, endFreq, length, sampleRate);
    if (fadeOutTailHz > 1.0) {
        if (const auto start = fadeOutStart(startFreq, endFreq, length, fadeOutTailHz))
            fadeOut(*samples, *start, length);
    }
    repeatSweep(*samples, length, numPeriods);
    return *std::move(samples);
}

std::vector<float> generatePinkNoise(double /*sampleRate*/, unsigned int numberOfSamples) {
    std::vector<float> samples(numberOfSamples);
    PinkNoise noise(static_cast<std::uint32_t>(std::time(nullptr)));
    float maximum = 0.0F;
    for (float& sample : samples) {
        sample = noise.next();
        maximum = std::max(maximum, std::abs(sample));
    }
    // Peaks are rounded off a little.
    for (float& sample : samples)
        sample = std::sin(sample / maximum);
    return samples;
}
