#include "dsp/WavFile.h"

#include "dsp/RegularFile.h"
#include "dsp/ReplacedFile.h"
#include "dsp/ToolError.h"

#include <sndfile.h>

#include <cmath>
#include <memory>
#include <string>

namespace dsp {
namespace {

constexpr sf_count_t kMostSamples = 400'000'000;  // 3.2 GB

struct Close {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using File = std::unique_ptr<SNDFILE, Close>;

bool isWide(int format) {
    const int samples = format & SF_FORMAT_SUBMASK;
    return samples == SF_FORMAT_PCM_32 || samples == SF_FORMAT_DOUBLE;
}

/// Reads blocks, so that a header that promises more than the file holds costs no memory.
Sound readAll(SNDFILE* file, const SF_INFO& info, const std::filesystem::path& path) {
    constexpr std::size_t blockFrames = 4096;
    const auto channels = static_cast<std::size_t>(info.channels);
    Sound sound{static_cast<unsigned>(info.samplerate), isWide(info.format),
                std::vector<std::vector<double>>(channels)};
    std::vector<double> block(blockFrames * channels);
    while (const sf_count_t frames = sf_readf_double(file, block.data(), blockFrames)) {
        if (frames < 0 || sf_error(file) != SF_ERR_NO_ERROR)
            throw ToolError(path, sf_strerror(file));
        for (std::size_t i = 0; i < static_cast<std::size_t>(frames) * channels; ++i) {
            if (!std::isfinite(block[i]))
                throw ToolError(path, "frame " +
                                          std::to_string(sound.channels[i % channels].size()) +
                                          " holds a sample that is not a number");
            sound.channels[i % channels].push_back(block[i]);
        }
    }
    return sound;
}

std::vector<double> interleaved(const Sound& sound) {
    std::vector<double> samples;
    samples.reserve(sound.frames() * sound.channels.size());
    for (std::size_t n = 0; n < sound.frames(); ++n) {
        for (const auto& channel : sound.channels)
            samples.push_back(channel[n]);
    }
    return samples;
}

std::string writeAll(const std::filesystem::path& path, const Sound& sound) {
    SF_INFO info{};
    info.samplerate = static_cast<int>(sound.rate);
    info.channels = static_cast<int>(sound.channels.size());
    info.format = SF_FORMAT_WAV | (sound.isWide ? SF_FORMAT_DOUBLE : SF_FORMAT_FLOAT);
    File file(sf_open(path.c_str(), SFM_WRITE, &info));
    if (!file)
        return sf_strerror(nullptr);
    const auto samples = interleaved(sound);
    const auto count = static_cast<sf_count_t>(sound.frames());
    const bool isWritten = sf_writef_double(file.get(), samples.data(), count) == count;
    const std::string reason = isWritten ? "" : sf_strerror(file.get());
    return sf_close(file.release()) == 0 || !isWritten ? reason : "the disk may be full";
}

}  // namespace

Sound readSound(const std::filesystem::path& path) {
    if (!std::filesystem::exists(path))
        throw ToolError(path, "there is no such file");
    refuseIrregularFile(path);
    SF_INFO info{};
    const File file(sf_open(path.c_str(), SFM_READ, &info));
    if (!file)
        throw ToolError(path, sf_strerror(nullptr));
    if (info.frames > kMostSamples / info.channels)
        throw ToolError(path, "is too long: " + std::to_string(info.frames) + " frames");
    Sound sound = readAll(file.get(), info, path);
    if (sound.frames() == 0)
        throw ToolError(path, "holds no sound");
    return sound;
}

void writeWav(const std::filesystem::path& path, const Sound& sound) {
    ReplacedFile file(path);
    if (const std::string reason = writeAll(file.partial(), sound); !reason.empty())
        throw ToolError(path, "cannot be written: " + reason);
    file.commit();
}

}  // namespace dsp
