#pragma once

#include <alsa/asoundlib.h>

#include <array>
#include <cstddef>

namespace roomsim {

inline constexpr std::array kSampleFormats{SND_PCM_FORMAT_S16_LE, SND_PCM_FORMAT_S32_LE,
                                           SND_PCM_FORMAT_FLOAT_LE};

/// Converts `count` samples of one channel, from `offset` frames on in its area, to floats of
/// full scale 1; what lies beyond is cut off. `format` is one of kSampleFormats.
void readSamples(snd_pcm_format_t format, const snd_pcm_channel_area_t& area, std::size_t offset,
                 float* target, std::size_t count);

/// The other way; integers are rounded, and limited to full scale.
void writeSamples(snd_pcm_format_t format, const snd_pcm_channel_area_t& area, std::size_t offset,
                  const float* source, std::size_t count);

}  // namespace roomsim
