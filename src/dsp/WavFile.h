#pragma once

#include <cstddef>
#include <filesystem>
#include <vector>

namespace dsp {

/// Sound in memory.
struct Sound {
    unsigned rate{48000};                       ///< Hz
    bool isWide{false};                         ///< samples of more than 24 bits
    std::vector<std::vector<double>> channels;  ///< equally long; full scale is 1

    [[nodiscard]] std::size_t frames() const {
        return channels.empty() ? 0 : channels.front().size();
    }
};

// Both functions throw ToolError.

/// Any sound file that libsndfile knows. Samples that are no numbers are refused.
Sound readSound(const std::filesystem::path& path);

/// A WAV file of 32-bit floats, or of 64-bit ones for wide samples: never clipped, and exact for
/// what was only passed on. Replaces a file as ReplacedFile does.
void writeWav(const std::filesystem::path& path, const Sound& sound);

}  // namespace dsp
