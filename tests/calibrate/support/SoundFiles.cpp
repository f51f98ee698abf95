#include "calibrate/support/SoundFiles.h"

#include <sndfile.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <random>
#include <stdexcept>

void writeSoundFile(const std::filesystem::path& path, int sampleRate, const Samples& channels,
                    int format) {
    SF_INFO info{};
    info.samplerate = sampleRate;
    info.channels = static_cast<int>(channels.size());
    info.format = format;
    const std::unique_ptr<SNDFILE, decltype(&sf_close)> file(
        sf_open(path.c_str(), SFM_WRITE, &info), &sf_close);
    if (!file)
        throw std::runtime_error(path.string() + ": " + sf_strerror(nullptr));
    std::vector<double> frame(channels.size());
    for (std::size_t i = 0; i < channels.front().size(); ++i) {
        std::transform(channels.begin(), channels.end(), frame.begin(),
                       [i](const auto& channel) { return channel[i]; });
        if (sf_writef_double(file.get(), frame.data(), 1) != 1)
            throw std::runtime_error(path.string() + ": " + sf_strerror(file.get()));
    }
}

void writeWav(const std::filesystem::path& path, int sampleRate, const Samples& channels) {
    writeSoundFile(path, sampleRate, channels, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
}

SoundFile readSoundFile(const std::filesystem::path& path) {
    SF_INFO info{};
    const std::unique_ptr<SNDFILE, decltype(&sf_close)> file(sf_open(path.c_str(), SFM_READ, &info),
                                                             &sf_close);
    if (!file)
        throw std::runtime_error(path.string() + ": " + sf_strerror(nullptr));
    SoundFile result{info.samplerate, info.channels, info.format, {}};
    result.samples.resize(static_cast<std::size_t>(info.frames * info.channels));
    if (sf_readf_float(file.get(), result.samples.data(), info.frames) != info.frames)
        throw std::runtime_error(path.string() + ": " + sf_strerror(file.get()));
    return result;
}

void writeText(const std::filesystem::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

void writeRaw(const std::filesystem::path& path, const std::vector<float>& samples) {
    std::string bytes;
    for (const float sample : samples) {
        const auto bits = std::bit_cast<std::uint32_t>(sample);
        for (unsigned i = 0; i < 4; ++i)
            bytes += static_cast<char>(bits >> (8 * i));
    }
    writeText(path, bytes);
}

std::filesystem::path testData() {
    const char* given = std::getenv("VESK_TEST_DATA");
    const std::filesystem::path data = given != nullptr ? given : VESK_DEFAULT_TEST_DATA;
    return std::filesystem::is_directory(data) ? data : std::filesystem::path();
}

std::vector<double> decayingFilter(std::size_t taps, unsigned seed) {
    std::minstd_rand random(seed);
    std::vector<double> result(taps);
    for (std::size_t i = 0; i < taps; ++i) {
        const double noise = static_cast<double>(random() % 2001) / 1000 - 1;
        result[i] =
            0.1 * noise * std::exp(-9.0 * static_cast<double>(i) / static_cast<double>(taps));
    }
    result[std::min<std::size_t>(2, taps - 1)] += 1;
    return result;
}
