#include "platform/player/FileSource.h"

#include "platform/player/Saturation.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace platform {

namespace {

constexpr double kFullScale = 2147483648.0;
constexpr std::size_t kBlock = 4096;  // frames
constexpr int kMostChannels = 64;

SNDFILE* opened(const std::string& path, AudioFormat* format) {
    // A pipe or a device could keep whoever opens it waiting.
    if (std::error_code error; !std::filesystem::is_regular_file(path, error))
        throw std::runtime_error(path + ": " + (error ? error.message() : "is not a file"));
    SF_INFO info{};
    SNDFILE* const file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file)
        throw std::runtime_error(path + ": " + sf_strerror(nullptr));
    if (info.channels > kMostChannels) {
        sf_close(file);
        throw std::runtime_error(path + ": has " + std::to_string(info.channels) +
                                 " channels; at most " + std::to_string(kMostChannels) +
                                 " can be played");
    }
    *format = {static_cast<unsigned>(info.samplerate), static_cast<unsigned>(info.channels)};
    return file;
}

}  // namespace

FileSource::FileSource(const std::string& path)
    : file_(opened(path, &format_), &sf_close), block_(kBlock * format_.channels) {
}

/// Through double precision, which holds 32-bit integers exactly, and floats beyond full scale.
std::size_t FileSource::read(std::span<std::int32_t> samples) {
    const std::size_t frames = std::min(samples.size() / format_.channels, kBlock);
    const auto got = sf_readf_double(file_.get(), block_.data(), static_cast<sf_count_t>(frames));
    over_ = over_ || (got <= 0 && frames > 0);
    const auto count = static_cast<std::size_t>(std::max<sf_count_t>(got, 0)) * format_.channels;
    std::transform(block_.begin(), block_.begin() + static_cast<std::ptrdiff_t>(count),
                   samples.begin(), [](double x) { return saturated(x * kFullScale); });
    return count;
}

}  // namespace platform
