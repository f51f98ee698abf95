#include "roomsim/AlsaPcm.h"

#include "roomsim/AlsaConfiguration.h"

#include <poll.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <mutex>
#include <stdexcept>

namespace {

std::mutex complaintsMutex;
std::string complaintsText;

/// Counts a full-scale sample of the signed integer formats.
constexpr double kFullScale16 = 32768.0;
constexpr double kFullScale32 = 2147483648.0;

void keepComplaint(const char* /*file*/, int /*line*/, const char* /*function*/, int error,
                   const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    char text[1000];
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    const std::lock_guard guard(complaintsMutex);
    complaintsText += text;
    if (error != 0)
        complaintsText += std::string(": ") + snd_strerror(error);
    complaintsText += '\n';
}

int check(int result, const char* call) {
    if (result < 0)
        throw std::runtime_error(std::string(call) + ": " + snd_strerror(result));
    return result;
}

snd_pcm_t* opened(const std::string& name, snd_pcm_stream_t direction, int mode) {
    snd_pcm_t* handle = nullptr;
    check(snd_pcm_open(&handle, name.c_str(), direction, mode), "snd_pcm_open");
    return handle;
}

void setHardware(snd_pcm_t* pcm, const StreamSetup& setup) {
    snd_pcm_hw_params_t* params = nullptr;
    snd_pcm_hw_params_alloca(&params);
    check(snd_pcm_hw_params_any(pcm, params), "any");
    check(snd_pcm_hw_params_set_access(pcm, params, setup.access), "access");
    check(snd_pcm_hw_params_set_format(pcm, params, setup.format), "format");
    check(snd_pcm_hw_params_set_channels(pcm, params, setup.channels), "channels");
    check(snd_pcm_hw_params_set_rate(pcm, params, setup.rate, 0), "rate");
    check(snd_pcm_hw_params_set_period_size(pcm, params, setup.period, 0), "period");
    check(snd_pcm_hw_params_set_buffer_size(pcm, params, setup.buffer), "buffer");
    check(snd_pcm_hw_params(pcm, params), "snd_pcm_hw_params");
}

void setSoftware(snd_pcm_t* pcm, const StreamSetup& setup) {
    snd_pcm_sw_params_t* params = nullptr;
    snd_pcm_sw_params_alloca(&params);
    check(snd_pcm_sw_params_current(pcm, params), "current");
    snd_pcm_uframes_t boundary = 0;
    check(snd_pcm_sw_params_get_boundary(params, &boundary), "boundary");
    check(snd_pcm_sw_params_set_start_threshold(pcm, params, boundary), "start threshold");
    check(snd_pcm_sw_params_set_avail_min(pcm, params, setup.period), "avail min");
    check(snd_pcm_sw_params(pcm, params), "snd_pcm_sw_params");
}

std::size_t sampleSize(snd_pcm_format_t format) {
    return format == SND_PCM_FORMAT_S16_LE ? 2 : 4;
}

void encode(snd_pcm_format_t format, float sample, char* to) {
    const auto value = static_cast<double>(sample);
    const auto narrow = static_cast<std::int16_t>(std::lround(value * kFullScale16));
    const auto wide = static_cast<std::int32_t>(std::llround(value * kFullScale32));
    if (format == SND_PCM_FORMAT_S16_LE)
        std::memcpy(to, &narrow, sizeof narrow);
    else if (format == SND_PCM_FORMAT_S32_LE)
        std::memcpy(to, &wide, sizeof wide);
    else
        std::memcpy(to, &sample, sizeof sample);
}

float decode(snd_pcm_format_t format, const char* from) {
    std::int16_t narrow = 0;
    std::int32_t wide = 0;
    float sample = 0.0F;
    if (format == SND_PCM_FORMAT_S16_LE) {
        std::memcpy(&narrow, from, sizeof narrow);
        return static_cast<float>(narrow / kFullScale16);
    }
    if (format == SND_PCM_FORMAT_S32_LE) {
        std::memcpy(&wide, from, sizeof wide);
        return static_cast<float>(wide / kFullScale32);
    }
    std::memcpy(&sample, from, sizeof sample);
    return sample;
}

}  // namespace

AlsaRoom::AlsaRoom(const RoomFiles& files)
    : configurationPath_("/usr/share/alsa/alsa.conf:" + files.path("asound.conf").string()) {
    std::ofstream(files.path("asound.conf"))
        << roomsim::alsaConfiguration(VESK_ROOM_PLUGIN, files.room());
    setenv("ALSA_CONFIG_PATH", configurationPath_.c_str(), 1);
    snd_config_update_free_global();
    complaintsText.clear();
    snd_lib_error_set_handler(keepComplaint);
}

AlsaRoom::~AlsaRoom() {
    snd_lib_error_set_handler(nullptr);
    snd_config_update_free_global();
}

std::string AlsaRoom::complaints() {
    const std::lock_guard guard(complaintsMutex);
    return complaintsText;
}

AlsaPcm::AlsaPcm(snd_pcm_stream_t direction, const StreamSetup& setup, int mode,
                 const std::string& name)
    : handle_(opened(name, direction, mode), snd_pcm_close), setup_(setup) {
    setHardware(get(), setup);
    setSoftware(get(), setup);
}

void AlsaPcm::start() const {
    check(snd_pcm_start(get()), "snd_pcm_start");
}

void AlsaPcm::prepare() const {
    check(snd_pcm_prepare(get()), "snd_pcm_prepare");
}

void AlsaPcm::drain() const {
    check(snd_pcm_drain(get()), "snd_pcm_drain");
}

void AlsaPcm::write(const Signals& channels) const {
    const std::vector<char> bytes = encoded(channels);
    const std::size_t frames = channels.front().size();
    const std::size_t frameSize = bytes.size() / frames;
    std::size_t done = 0;
    while (done < frames) {
        const char* from = bytes.data() + done * frameSize;
        done += static_cast<std::size_t>(
            check(static_cast<int>(snd_pcm_writei(get(), from, frames - done)), "snd_pcm_writei"));
    }
}

snd_pcm_sframes_t AlsaPcm::tryWrite(const Signals& channels) const {
    return snd_pcm_writei(get(), encoded(channels).data(), channels.front().size());
}

Signal AlsaPcm::read(std::size_t frames) const {
    Signal signal;
    while (signal.size() < frames) {
        Signal piece;
        check(static_cast<int>(tryRead(frames - signal.size(), piece)), "snd_pcm_readi");
        signal.insert(signal.end(), piece.begin(), piece.end());
    }
    return signal;
}

snd_pcm_sframes_t AlsaPcm::tryRead(std::size_t frames, Signal& signal) const {
    std::vector<char> bytes(frames * sampleSize(setup_.format));
    const snd_pcm_sframes_t result = snd_pcm_readi(get(), bytes.data(), frames);
    signal = decoded(bytes, static_cast<std::size_t>(std::max<snd_pcm_sframes_t>(result, 0)));
    return result;
}

unsigned short AlsaPcm::poll(int milliseconds) const {
    pollfd descriptor{};
    check(snd_pcm_poll_descriptors(get(), &descriptor, 1), "snd_pcm_poll_descriptors");
    ::poll(&descriptor, 1, milliseconds);
    unsigned short events = 0;
    check(snd_pcm_poll_descriptors_revents(get(), &descriptor, 1, &events), "revents");
    return events;
}

std::vector<char> AlsaPcm::encoded(const Signals& channels) const {
    const std::size_t size = sampleSize(setup_.format);
    const std::size_t frames = channels.front().size();
    std::vector<char> bytes(frames * channels.size() * size);
    for (std::size_t frame = 0; frame < frames; ++frame) {
        for (std::size_t channel = 0; channel < channels.size(); ++channel)
            encode(setup_.format, channels[channel][frame],
                   bytes.data() + (frame * channels.size() + channel) * size);
    }
    return bytes;
}

Signal AlsaPcm::decoded(const std::vector<char>& bytes, std::size_t frames) const {
    Signal signal(frames);
    for (std::size_t frame = 0; frame < frames; ++frame)
        signal[frame] = decode(setup_.format, bytes.data() + frame * sampleSize(setup_.format));
    return signal;
}

int openResult(snd_pcm_stream_t direction, const std::string& name) {
    snd_pcm_t* handle = nullptr;
    const int result = snd_pcm_open(&handle, name.c_str(), direction, 0);
    if (result >= 0)
        snd_pcm_close(handle);
    return result;
}
