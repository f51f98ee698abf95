#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

/// Channels of samples; all of one length.
using Samples = std::vector<std::vector<double>>;

/// Writes a sound file with libsndfile; `format` is one of its SF_FORMAT_ sums.
/// Throws std::runtime_error when it cannot.
void writeSoundFile(const std::filesystem::path& path, int sampleRate, const Samples& channels,
                    int format);

/// The same as a WAV file of 32-bit floats.
void writeWav(const std::filesystem::path& path, int sampleRate, const Samples& channels);

/// A sound file as libsndfile reads it.
struct SoundFile {
    int sampleRate{0};
    int channels{0};
    int format{0};  ///< a sum of its SF_FORMAT_
    std::vector<float> samples;
};

/// Throws std::runtime_error when it cannot be read.
SoundFile readSoundFile(const std::filesystem::path& path);

void writeText(const std::filesystem::path& path, const std::string& text);

/// Little-endian 32-bit floats.
void writeRaw(const std::filesystem::path& path, const std::vector<float>& samples);

/// The directory of measured data, or an empty path where there is none: that of the environment
/// variable VESK_TEST_DATA, else "shared/data" beside the repository.
std::filesystem::path testData();

/// A filter like those that correct rooms: its largest tap comes early, and it dies away.
std::vector<double> decayingFilter(std::size_t taps, unsigned seed);
