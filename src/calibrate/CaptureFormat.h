#pragma once

#include <alsa/asoundlib.h>

#include <array>
#include <cstddef>

namespace calibrate {

/// How a sound card delivers a sample, and what it is worth: full scale is -1 to below 1.
struct CaptureFormat {
    snd_pcm_format_t format;
    float (*sample)(const std::byte*);
};

float fromInteger32(const std::byte* bytes);
float fromFloat(const std::byte* bytes);
/// The low three bytes count; a fourth one may hold anything.
float fromInteger24(const std::byte* bytes);
float fromInteger16(const std::byte* bytes);

/// The most exact first.
inline constexpr std::array kCaptureFormats{
    CaptureFormat{SND_PCM_FORMAT_S32_LE, &fromInteger32},
    CaptureFormat{SND_PCM_FORMAT_FLOAT_LE, &fromFloat},
    CaptureFormat{SND_PCM_FORMAT_S24_3LE, &fromInteger24},
    CaptureFormat{SND_PCM_FORMAT_S24_LE, &fromInteger24},
    CaptureFormat{SND_PCM_FORMAT_S16_LE, &fromInteger16},
};

}  // namespace calibrate
