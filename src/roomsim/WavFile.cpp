#include "roomsim/WavFile.h"

#include "roomsim/RoomError.h"

#include <sndfile.h>

#include <cerrno>
#include <memory>

namespace roomsim {
namespace {

struct Close {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using File = std::unique_ptr<SNDFILE, Close>;

constexpr sf_count_t kMostSamples = 100'000'000;

[[noreturn]] void fail(int code, const std::filesystem::path& file, const std::string& reason) {
    throw RoomError(code, file.string() + ": " + reason);
}

}  // namespace

WavFile readWavFile(const std::filesystem::path& path) {
    SF_INFO info{};
    const File file(sf_open(path.c_str(), SFM_READ, &info));
    if (!file)
        fail(std::filesystem::exists(path) ? EINVAL : ENOENT, path, sf_strerror(nullptr));
    if (info.frames < 1 || info.frames > kMostSamples / info.channels)
        fail(EINVAL, path, "has " + std::to_string(info.frames) + " frames");

    const auto channels = static_cast<std::size_t>(info.channels);
    const auto frames = static_cast<std::size_t>(info.frames);
    std::vector<float> interleaved(frames * channels);
    if (sf_readf_float(file.get(), interleaved.data(), info.frames) != info.frames)
        fail(EINVAL, path, "ends early");

    WavFile content{static_cast<unsigned int>(info.samplerate),
                    std::vector(channels, std::vector<float>(frames))};
    for (std::size_t i = 0; i < interleaved.size(); ++i)
        content.channels[i % channels][i / channels] = interleaved[i];
    return content;
}

void writeWavFile(const std::filesystem::path& path, const WavFile& content) {
    const std::size_t channels = content.channels.size();
    const std::size_t frames = content.channels.front().size();
    std::vector<float> interleaved(frames * channels);
    for (std::size_t i = 0; i < interleaved.size(); ++i)
        interleaved[i] = content.channels[i % channels][i / channels];

    SF_INFO info{};
    info.samplerate = static_cast<int>(content.rate);
    info.channels = static_cast<int>(channels);
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    File file(sf_open(path.c_str(), SFM_WRITE, &info));
    if (!file)
        fail(EIO, path, sf_strerror(nullptr));
    const auto count = static_cast<sf_count_t>(frames);
    const bool written = sf_writef_float(file.get(), interleaved.data(), count) == count;
    if (sf_close(file.release()) != 0 || !written)
        fail(EIO, path, "could not be written");
}

}  // namespace roomsim
