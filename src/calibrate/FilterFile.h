#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <vector>

namespace calibrate {

/// Correction filters as a file holds them.
struct FilterFile {
    std::filesystem::path path;
    double sampleRate{0};                       ///< Hz
    std::vector<std::vector<double>> channels;  ///< taps, earliest first; all of one length, finite

    std::size_t taps() const { return channels.front().size(); }

    /// The file's name for messages, without control characters.
    std::string name() const;
};

/// What files without a header do not say.
struct HeaderlessFormat {
    std::optional<double> sampleRate;  ///< Hz
    std::size_t channels{1};           ///< interleaved
};

/// Reads a file by its extension:
///  - .wav .wave .w64 .rf64 .aif .aiff .aifc .au .caf .flac: any number of channels and any sample
///    format, floats exactly as they stand; integers have a full scale of 1;
///  - .f32 .raw .bin: little-endian 32-bit floats, no header, channels interleaved;
///  - .txt: a number on each line; empty lines and lines that start with # ; * or / are passed
///    over. One channel.
/// Throws BadInput that names the file, the place and what to do.
FilterFile readFilterFile(const std::filesystem::path& path, const HeaderlessFormat& format);

}  // namespace calibrate
