#include "modules/dirac/StimulusPcm.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace {

using Sample = std::int32_t;

constexpr float kFullScale = 2147483648.0F;
constexpr Sample kLargest = std::numeric_limits<Sample>::max();
constexpr Sample kSmallest = std::numeric_limits<Sample>::min();

Sample sampleOf(float x) {
    if (x >= 1.0F)
        return kLargest;
    if (x <= -1.0F)
        return kSmallest;
    if (std::isnan(x))
        return 0;
    const double product = double{x * kFullScale};
    return static_cast<Sample>(x >= 0.0F ? product + 0.5 : product - 0.5);
}

/// Like std::round(), without the call.
Sample nearest(double value) {
    const double inRange = std::clamp(value, double{kSmallest}, double{kLargest});
    const auto whole = static_cast<Sample>(inRange);
    const double fraction = inRange - whole;
    return whole + static_cast<Sample>(fraction >= 0.5) - static_cast<Sample>(fraction <= -0.5);
}

}  // namespace

std::vector<std::int32_t> pcmOf(const std::vector<float>& samples) {
    std::vector<Sample> pcm(samples.size());
    std::transform(samples.begin(), samples.end(), pcm.begin(), sampleOf);
    return pcm;
}

QByteArray monoToSpecificChannel(const char* samples, std::size_t size, int channel, int channels) {
    const std::size_t frameSize = sizeof(Sample) * static_cast<std::size_t>(channels);
    const std::size_t count = size / sizeof(Sample);
    QByteArray frames(static_cast<int>(count * frameSize), '\0');
    char* target = frames.data() + sizeof(Sample) * static_cast<std::size_t>(channel);
    for (std::size_t k = 0; k < count; ++k)
        std::memcpy(target + k * frameSize, samples + k * sizeof(Sample), sizeof(Sample));
    return frames;
}

void applyGain(QByteArray& frames, int channel, int channels, float gain) {
    const std::size_t frameSize = sizeof(Sample) * static_cast<std::size_t>(channels);
    const std::size_t count = static_cast<std::size_t>(frames.size()) / frameSize;
    char* target = frames.data() + sizeof(Sample) * static_cast<std::size_t>(channel);
    for (std::size_t k = 0; k < count; ++k, target += frameSize) {
        Sample sample = 0;
        std::memcpy(&sample, target, sizeof(Sample));
        sample = nearest(double{gain} * sample);
        std::memcpy(target, &sample, sizeof(Sample));
    }
}

float playbackProgress(std::uint64_t position, std::uint64_t done, std::uint64_t size,
                       std::uint64_t speakers) {
    const std::uint64_t percent = std::max<std::uint64_t>(speakers * size / 100, 1);
    return static_cast<float>((position + done * size) / percent) - 1.0F;
}
