#pragma once

#include <filesystem>
#include <vector>

namespace roomsim {

/// Samples by channel, nominal full scale 1.
struct WavFile {
    unsigned int rate;  ///< Hz
    std::vector<std::vector<float>> channels;
};

/// Reads any file that libsndfile knows; throws RoomError.
WavFile readWavFile(const std::filesystem::path& path);

/// Writes 32-bit floats; throws RoomError. The channels are equally long.
void writeWavFile(const std::filesystem::path& path, const WavFile& content);

}  // namespace roomsim
