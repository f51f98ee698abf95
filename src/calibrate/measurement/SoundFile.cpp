#include "calibrate/measurement/SoundFile.h"

#include "calibrate/Errors.h"
#include "calibrate/Text.h"
#include "calibrate/TextFile.h"

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace calibrate::measurement {
namespace {

constexpr sf_count_t kMostSeconds = 600;
constexpr int kMostChannels = 256;

struct Close {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using File = std::unique_ptr<SNDFILE, Close>;

[[noreturn]] void refuse(const std::filesystem::path& path, const std::string& why) {
    throw BadInput(printable(path.string()) + ": " + why);
}

void checkSize(const std::filesystem::path& path, const SF_INFO& info) {
    if (info.frames < 1)
        refuse(path, "holds no sound");
    if (info.samplerate < 8000 || info.samplerate > 768'000)
        refuse(path, "its sample rate of " + std::to_string(info.samplerate) + " Hz is no use");
    if (info.frames > kMostSeconds * info.samplerate || info.channels > kMostChannels)
        refuse(path, "is too long for a measurement");
}

std::vector<double> readSamples(const std::filesystem::path& path, SNDFILE* file,
                                const SF_INFO& info) {
    std::vector<double> samples(static_cast<std::size_t>(info.frames * info.channels));
    if (sf_readf_double(file, samples.data(), info.frames) != info.frames)
        refuse(path, "ends early");
    const auto bad = std::ranges::find_if(samples, [](double x) { return !std::isfinite(x); });
    if (bad != samples.end()) {
        const auto frame = (bad - samples.begin()) / info.channels;
        refuse(path, "frame " + std::to_string(frame) + " holds no number");
    }
    return samples;
}

/// What the system said, without what libsndfile puts around it.
std::string reasonOf(SNDFILE* file) {
    std::string text = printable(sf_strerror(file));
    const std::string_view prefix = "System error : ";
    if (text.starts_with(prefix))
        text.erase(0, prefix.size());
    if (text.ends_with('.'))
        text.pop_back();
    return text;
}

}  // namespace

SoundFile readSoundFile(const std::filesystem::path& path) {
    checkReadable(path);
    SF_INFO info{};
    const File file(sf_open(path.c_str(), SFM_READ, &info));
    if (!file)
        refuse(path, printable(sf_strerror(nullptr)));
    checkSize(path, info);
    const auto samples = readSamples(path, file.get(), info);
    const auto channels = static_cast<std::size_t>(info.channels);
    SoundFile content{static_cast<double>(info.samplerate),
                      std::vector(channels, std::vector<double>(samples.size() / channels))};
    for (std::size_t i = 0; i < samples.size(); ++i)
        content.channels[i % channels][i / channels] = samples[i];
    return content;
}

void writeSoundFile(const std::filesystem::path& path, const SoundFile& content) {
    const std::size_t channels = content.channels.size();
    const std::size_t frames = content.channels.front().size();
    std::vector<float> samples(frames * channels);
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<float>(content.channels[i % channels][i / channels]);
    SF_INFO info{};
    info.samplerate = static_cast<int>(std::lround(content.sampleRate));
    info.channels = static_cast<int>(channels);
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    File file(sf_open(path.c_str(), SFM_WRITE, &info));
    if (!file)
        throw WriteError(path, reasonOf(nullptr));
    // Its peaks would be stored with the time; the same sound is to give the same bytes.
    sf_command(file.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
    const auto count = static_cast<sf_count_t>(frames);
    if (sf_writef_float(file.get(), samples.data(), count) != count)
        throw WriteError(path, reasonOf(file.get()));
    if (sf_close(file.release()) != 0)
        throw WriteError(path, "its end is missing");
}

std::vector<ImpulseResponse> impulseResponses(const SoundFile& file) {
    std::vector<ImpulseResponse> responses;
    for (const auto& channel : file.channels)
        responses.push_back({file.sampleRate, channel, 0});
    return responses;
}

}  // namespace calibrate::measurement
