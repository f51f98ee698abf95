#include "roomsim/SampleFormat.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

namespace roomsim {
namespace {

template <typename Sample>
constexpr double kFullScale = -static_cast<double>(std::numeric_limits<Sample>::min());

template <>
constexpr double kFullScale<float> = 1.0;

template <typename Sample>
Sample toSample(float value) {
    if constexpr (std::is_same_v<Sample, float>) {
        return value;
    } else {
        constexpr double kLowest = std::numeric_limits<Sample>::min();
        constexpr double kHighest = std::numeric_limits<Sample>::max();
        const double scaled = std::round(static_cast<double>(value) * kFullScale<Sample>);
        return static_cast<Sample>(std::clamp(scaled, kLowest, kHighest));
    }
}

/// What a converter makes of it: beyond full scale there is nothing.
template <typename Sample>
float toFloat(Sample sample) {
    if constexpr (std::is_same_v<Sample, float>)
        return std::isnan(sample) ? 0.0F : std::clamp(sample, -1.0F, 1.0F);
    else
        return static_cast<float>(static_cast<double>(sample) / kFullScale<Sample>);
}

char* addressOf(const snd_pcm_channel_area_t& area, std::size_t frame) {
    return static_cast<char*>(area.addr) + (area.first + frame * area.step) / 8;
}

template <typename Sample>
void read(const snd_pcm_channel_area_t& area, std::size_t offset, float* target,
          std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        Sample sample;
        std::memcpy(&sample, addressOf(area, offset + i), sizeof sample);
        target[i] = toFloat(sample);
    }
}

template <typename Sample>
void write(const snd_pcm_channel_area_t& area, std::size_t offset, const float* source,
           std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        const auto sample = toSample<Sample>(source[i]);
        std::memcpy(addressOf(area, offset + i), &sample, sizeof sample);
    }
}

}  // namespace

void readSamples(snd_pcm_format_t format, const snd_pcm_channel_area_t& area, std::size_t offset,
                 float* target, std::size_t count) {
    if (format == SND_PCM_FORMAT_S16_LE)
        read<std::int16_t>(area, offset, target, count);
    else if (format == SND_PCM_FORMAT_S32_LE)
        read<std::int32_t>(area, offset, target, count);
    else
        read<float>(area, offset, target, count);
}

void writeSamples(snd_pcm_format_t format, const snd_pcm_channel_area_t& area, std::size_t offset,
                  const float* source, std::size_t count) {
    if (format == SND_PCM_FORMAT_S16_LE)
        write<std::int16_t>(area, offset, source, count);
    else if (format == SND_PCM_FORMAT_S32_LE)
        write<std::int32_t>(area, offset, source, count);
    else
        write<float>(area, offset, source, count);
}

}  // namespace roomsim
