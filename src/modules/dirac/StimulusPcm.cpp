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

// Frames are filled in pieces that stay in the processor's nearest cache.
constexpr std::size_t kPiece = 8192;  // bytes

/// Without a branch or a call, so that several are done at once.
Sample nearest(double value) {
    return static_cast<Sample>(value + std::copysign(0.5, value));
}

}  // namespace

std::vector<std::int32_t> pcmOf(const std::vector<float>& samples) {
    std::vector<Sample> pcm(samples.size());
    std::transform(samples.begin(), samples.end(), pcm.begin(), sampleOf);
    return pcm;
}

QByteArray monoToSpecificChannel(const char* samples, std::size_t size, int channel, int channels) {
    const std::size_t frameSize = sizeof(Sample) * static_cast<std::size_t>(channels);
    const std::size_t offset = sizeof(Sample) * static_cast<std::size_t>(channel);
    const std::size_t count = size / sizeof(Sample);
    const std::size_t piece = std::max<std::size_t>(kPiece / frameSize, 1);  // frames
    QByteArray frames(static_cast<int>(count * frameSize), Qt::Uninitialized);
    char* target = frames.data();
    for (std::size_t begin = 0; begin < count; begin += piece) {
        const std::size_t end = std::min(begin + piece, count);
        std::memset(target + begin * frameSize, 0, (end - begin) * frameSize);
        for (std::size_t k = begin; k < end; ++k)
            std::memcpy(target + k * frameSize + offset, samples + k * sizeof(Sample),
                        sizeof(Sample));
    }
    return frames;
}

void applyGain(std::span<const Sample> samples, float gain, std::vector<Sample>& scaled) {
    scaled.resize(samples.size());
    std::ranges::transform(samples, scaled.begin(), [factor = double{gain}](Sample sample) {
        return nearest(factor * sample);
    });
}

float playbackProgress(std::uint64_t position, std::uint64_t done, std::uint64_t size,
                       std::uint64_t speakers) {
    const std::uint64_t percent = std::max<std::uint64_t>(speakers * size / 100, 1);
    const std::uint64_t whole = (position + done * size) / percent;
    return static_cast<float>(whole) - 1.0F;
}
