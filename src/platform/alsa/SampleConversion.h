#pragma once

#include <alsa/asoundlib.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace platform {

/// Writes 32-bit samples to `to` in another format. Integers are rounded to the nearest, and full
/// scale stays full scale.
using SampleConverter = void (*)(std::span<const std::int32_t> samples, std::byte* to);

/// The formats that 32-bit samples can be converted to, the most exact first.
const std::vector<snd_pcm_format_t>& convertibleFormats();

/// The converter to one of them.
SampleConverter converterTo(snd_pcm_format_t format);

}  // namespace platform
