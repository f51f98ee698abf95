#pragma once

#include "calibrate/measurement/ImpulseResponse.h"

#include <filesystem>
#include <vector>

namespace calibrate::measurement {

/// Channels of samples, nominal full scale 1.
struct SoundFile {
    double sampleRate{0};                       ///< Hz
    std::vector<std::vector<double>> channels;  ///< all of one length, finite
};

/// Reads any file that libsndfile knows. Throws BadInput that names the file and what is wrong:
/// unreadable, empty, longer than ten minutes, or a sample that is no number.
SoundFile readSoundFile(const std::filesystem::path& path);

/// Writes a WAV file of 32-bit floats; the channels are equally long and not empty.
/// Throws WriteError that names the file, as when the disk is full.
void writeSoundFile(const std::filesystem::path& path, const SoundFile& content);

/// Each channel as an impulse response; all start at the impulse.
std::vector<ImpulseResponse> impulseResponses(const SoundFile& file);

}  // namespace calibrate::measurement
