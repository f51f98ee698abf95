#pragma once

#include <sndfile.h>

#include <cstdint>
#include <filesystem>
#include <span>
#include <stdexcept>
#include <vector>

/// Writes a WAV file; `format` is libsndfile's name of the samples' kind.
template <typename Sample>
void writeSoundFile(const std::filesystem::path& path, std::span<const Sample> samples,
                    int channels, int rate = 48000, int format = SF_FORMAT_PCM_32) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = SF_FORMAT_WAV | format;
    SNDFILE* const file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file)
        throw std::runtime_error(sf_strerror(nullptr));
    const auto count = static_cast<sf_count_t>(samples.size());
    if constexpr (std::is_same_v<Sample, float>)
        sf_write_float(file, samples.data(), count);
    else
        sf_write_int(file, samples.data(), count);
    sf_close(file);
}
