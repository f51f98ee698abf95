#include "platform/alsa/SampleConversion.h"

#include <algorithm>
#include <cstring>

namespace platform {

namespace {

constexpr double kFullScale = 2147483648.0;

/// The upper bits of a sample, rounded; full scale stays full scale.
template <int Bits>
std::int32_t upperBits(std::int32_t sample) {
    constexpr int kShift = 32 - Bits;
    constexpr std::int64_t kHalf = std::int64_t{1} << (kShift - 1);
    constexpr std::int64_t kLargest = (std::int64_t{1} << (Bits - 1)) - 1;
    return static_cast<std::int32_t>(std::min((sample + kHalf) >> kShift, kLargest));
}

void toS32(std::span<const std::int32_t> samples, std::byte* to) {
    std::memcpy(to, samples.data(), samples.size_bytes());
}

void toS24In3(std::span<const std::int32_t> samples, std::byte* to) {
    constexpr std::size_t kSize = 3;
    for (const std::int32_t sample : samples) {
        const std::int32_t value = upperBits<24>(sample);
        std::memcpy(to, &value, kSize);
        to += kSize;
    }
}

void toFloat(std::span<const std::int32_t> samples, std::byte* to) {
    for (const std::int32_t sample : samples) {
        const auto value = static_cast<float>(sample / kFullScale);
        std::memcpy(to, &value, sizeof value);
        to += sizeof value;
    }
}

void toS16(std::span<const std::int32_t> samples, std::byte* to) {
    for (const std::int32_t sample : samples) {
        const auto value = static_cast<std::int16_t>(upperBits<16>(sample));
        std::memcpy(to, &value, sizeof value);
        to += sizeof value;
    }
}

}  // namespace

const std::vector<snd_pcm_format_t>& convertibleFormats() {
    static const std::vector<snd_pcm_format_t> formats{
        SND_PCM_FORMAT_S32_LE, SND_PCM_FORMAT_S24_3LE, SND_PCM_FORMAT_FLOAT_LE,
        SND_PCM_FORMAT_S16_LE};
    return formats;
}

SampleConverter converterTo(snd_pcm_format_t format) {
    switch (format) {
        case SND_PCM_FORMAT_S24_3LE:
            return &toS24In3;
        case SND_PCM_FORMAT_FLOAT_LE:
            return &toFloat;
        case SND_PCM_FORMAT_S16_LE:
            return &toS16;
        default:
            return &toS32;
    }
}

}  // namespace platform
