// The ALSA plug-in: hands alsa-lib's callbacks to the streams of the room.

#include "roomsim/CaptureStream.h"
#include "roomsim/PlaybackStream.h"
#include "roomsim/RoomError.h"
#include "roomsim/SampleFormat.h"

#include <alsa/asoundlib.h>
#include <alsa/pcm_external.h>

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace roomsim {
namespace {

/// What the entry in the ALSA configuration says.
struct Entry {
    std::string room;
    std::string role;  ///< "playback", "capture", or empty for both
    std::string microphone;
};

/// A PCM handle's private data: alsa-lib's view of the plug-in, and the stream behind it. alsa-lib
/// calls start, stop, pointer and transfer with the handle's lock held, the rest without it.
class RoomPcm {
public:
    RoomPcm() = default;
    virtual ~RoomPcm() = default;
    RoomPcm(const RoomPcm&) = delete;
    RoomPcm& operator=(const RoomPcm&) = delete;

    virtual Stream& stream() = 0;

    /// Negative is an errno value.
    virtual snd_pcm_sframes_t transfer(const snd_pcm_channel_area_t* areas, std::size_t offset,
                                       std::size_t count) = 0;

    snd_pcm_ioplug_t io{};
};

class PlaybackPcm : public RoomPcm {
public:
    explicit PlaybackPcm(const RoomDescription& room)
        : stream_(room), samples_(room.speakers.size()) {}

    Stream& stream() override { return stream_; }

    snd_pcm_sframes_t transfer(const snd_pcm_channel_area_t* areas, std::size_t offset,
                               std::size_t count) override {
        std::vector<const float*> channels;
        for (std::size_t i = 0; i < samples_.size(); ++i) {
            samples_[i].resize(std::max(samples_[i].size(), count));
            readSamples(io.format, areas[i], offset, samples_[i].data(), count);
            channels.push_back(samples_[i].data());
        }
        if (stream_.write(static_cast<std::int64_t>(io.appl_ptr), channels.data(), count))
            return static_cast<snd_pcm_sframes_t>(count);
        io.state = SND_PCM_STATE_XRUN;
        return -EPIPE;
    }

private:
    PlaybackStream stream_;
    std::vector<std::vector<float>> samples_;  ///< by channel
};

class CapturePcm : public RoomPcm {
public:
    explicit CapturePcm(const RoomDescription& room) : stream_(room) {}

    Stream& stream() override { return stream_; }

    snd_pcm_sframes_t transfer(const snd_pcm_channel_area_t* areas, std::size_t offset,
                               std::size_t count) override {
        samples_.resize(std::max(samples_.size(), count));
        stream_.read(static_cast<std::int64_t>(io.appl_ptr), samples_.data(), count);
        writeSamples(io.format, areas[0], offset, samples_.data(), count);
        return static_cast<snd_pcm_sframes_t>(count);
    }

private:
    CaptureStream stream_;
    std::vector<float> samples_;
};

RoomPcm& pcmOf(snd_pcm_ioplug_t* io) {
    return *static_cast<RoomPcm*>(io->private_data);
}

/// Runs `action`; alsa-lib cannot take exceptions.
template <typename Action>
auto guarded(Action action) -> decltype(action()) {
    try {
        return action();
    } catch (const RoomError& error) {
        SNDERR("%s", error.what());
        return -error.code();
    } catch (const std::system_error& error) {
        SNDERR("%s", error.what());
        return -error.code().value();
    } catch (const std::exception& error) {
        SNDERR("%s", error.what());
        return -EIO;
    }
}

int onStart(snd_pcm_ioplug_t* io) {
    return guarded([io] {
        pcmOf(io).stream().start();
        return 0;
    });
}

int onStop(snd_pcm_ioplug_t* io) {
    return guarded([io] {
        pcmOf(io).stream().stop();
        return 0;
    });
}

int onPrepare(snd_pcm_ioplug_t* io) {
    return guarded([io] {
        pcmOf(io).stream().prepare();
        return 0;
    });
}

/// An error ends draining; a recording has nothing to wait for.
snd_pcm_sframes_t onPointer(snd_pcm_ioplug_t* io) {
    return guarded([io]() -> snd_pcm_sframes_t {
        const bool draining = io->state == SND_PCM_STATE_DRAINING;
        if (draining && io->stream == SND_PCM_STREAM_CAPTURE)
            return -EPIPE;
        const auto applied = static_cast<std::int64_t>(io->appl_ptr);
        const Stream::Position position = pcmOf(io).stream().position(applied, draining);
        if (position.progress == Stream::Progress::kXrun)
            return -EPIPE;
        if (position.progress == Stream::Progress::kUnplugged)
            io->state = SND_PCM_STATE_DISCONNECTED;
        return position.frames;
    });
}

snd_pcm_sframes_t onTransfer(snd_pcm_ioplug_t* io, const snd_pcm_channel_area_t* areas,
                             snd_pcm_uframes_t offset, snd_pcm_uframes_t size) {
    return guarded([=] { return pcmOf(io).transfer(areas, offset, size); });
}

int onHwParams(snd_pcm_ioplug_t* io, snd_pcm_hw_params_t* /*params*/) {
    return guarded([io] {
        pcmOf(io).stream().configure(io->rate, static_cast<std::int64_t>(io->buffer_size));
        return 0;
    });
}

int onSwParams(snd_pcm_ioplug_t* io, snd_pcm_sw_params_t* params) {
    return guarded([io, params] {
        snd_pcm_uframes_t availableMinimum = 1;
        snd_pcm_uframes_t stopThreshold = 0;
        snd_pcm_sw_params_get_avail_min(params, &availableMinimum);
        snd_pcm_sw_params_get_stop_threshold(params, &stopThreshold);
        pcmOf(io).stream().setThresholds(static_cast<std::int64_t>(availableMinimum),
                                         static_cast<std::int64_t>(stopThreshold));
        return 0;
    });
}

/// The descriptor only ever raises POLLIN; what that means is the stream's to say.
int onPollRevents(snd_pcm_ioplug_t* io, pollfd* descriptors, unsigned int count,
                  unsigned short* events) {
    return guarded([=] {
        *events = 0;
        if (count != 1 || descriptors->revents == 0)
            return 0;
        const unsigned short ready = io->stream == SND_PCM_STREAM_PLAYBACK ? POLLOUT : POLLIN;
        const Stream::Readiness readiness = pcmOf(io).stream().readiness();
        if (readiness == Stream::Readiness::kReady)
            *events = ready;
        else if (readiness == Stream::Readiness::kStopped)
            *events = ready | POLLERR;
        return 0;
    });
}

void onDump(snd_pcm_ioplug_t* io, snd_output_t* output) {
    snd_output_printf(output, "%s\n", io->name);
    snd_output_printf(output, "  started at room time %.6f s\n",
                      static_cast<double>(pcmOf(io).stream().startTime()) / kFlicksPerSecond);
}

int onClose(snd_pcm_ioplug_t* io) {
    delete &pcmOf(io);
    return 0;
}

const snd_pcm_ioplug_callback_t kCallbacks = [] {
    snd_pcm_ioplug_callback_t callbacks{};
    callbacks.start = onStart;
    callbacks.stop = onStop;
    callbacks.pointer = onPointer;
    callbacks.transfer = onTransfer;
    callbacks.close = onClose;
    callbacks.hw_params = onHwParams;
    callbacks.sw_params = onSwParams;
    callbacks.prepare = onPrepare;
    callbacks.poll_revents = onPollRevents;
    callbacks.dump = onDump;
    return callbacks;
}();

void check(int result) {
    if (result < 0)
        throw RoomError(-result, std::string("room: ") + snd_strerror(result));
}

std::string textOf(snd_config_t* node, const char* key) {
    const char* text = nullptr;
    if (snd_config_get_string(node, &text) < 0)
        throw RoomError(EINVAL, std::string("veskroom: \"") + key + "\" is not a text");
    return text;
}

void readField(snd_config_t* node, Entry& entry) {
    const char* id = nullptr;
    check(snd_config_get_id(node, &id));
    const std::string key = id;
    if (key == "room")
        entry.room = textOf(node, id);
    else if (key == "role")
        entry.role = textOf(node, id);
    else if (key == "microphone")
        entry.microphone = textOf(node, id);
    else if (key != "comment" && key != "type" && key != "hint")
        throw RoomError(EINVAL, "veskroom: \"" + key + "\" is not known");
}

Entry readEntry(snd_config_t* configuration) {
    Entry entry;
    snd_config_iterator_t i;
    snd_config_iterator_t next;
    snd_config_for_each(i, next, configuration) readField(snd_config_iterator_entry(i), entry);
    if (entry.room.empty())
        throw RoomError(EINVAL, "veskroom: \"room\", the path of the room's file, is missing");
    return entry;
}

void checkRole(const Entry& entry, snd_pcm_stream_t direction) {
    const std::string wanted = direction == SND_PCM_STREAM_PLAYBACK ? "playback" : "capture";
    if (!entry.role.empty() && entry.role != wanted)
        throw RoomError(EINVAL,
                        "veskroom: \"role\" is \"" + entry.role + "\", which is not " + wanted);
}

/// The environment wins, so that one configuration serves several positions of the microphone.
std::string chosenMicrophone(const Entry& entry) {
    const char* chosen = std::getenv("VESK_ROOM_MIC");
    return chosen != nullptr ? chosen : entry.microphone;
}

template <typename Values>
void allow(snd_pcm_ioplug_t& io, int parameter, const Values& values) {
    std::vector<unsigned int> list(values.begin(), values.end());
    check(snd_pcm_ioplug_set_param_list(&io, parameter, static_cast<unsigned int>(list.size()),
                                        list.data()));
}

void allowBetween(snd_pcm_ioplug_t& io, int parameter, unsigned int lowest, unsigned int highest) {
    check(snd_pcm_ioplug_set_param_minmax(&io, parameter, lowest, highest));
}

void constrain(snd_pcm_ioplug_t& io, unsigned int channels) {
    constexpr std::array kAccesses{SND_PCM_ACCESS_RW_INTERLEAVED, SND_PCM_ACCESS_RW_NONINTERLEAVED,
                                   SND_PCM_ACCESS_MMAP_INTERLEAVED,
                                   SND_PCM_ACCESS_MMAP_NONINTERLEAVED};
    constexpr unsigned int kSmallestSample = 2;  // bytes
    constexpr unsigned int kShortestPeriod = 16;
    const unsigned int smallestFrame = kSmallestSample * channels;
    const unsigned int longestBuffer = smallestFrame * static_cast<unsigned int>(kLongestBuffer);
    allow(io, SND_PCM_IOPLUG_HW_ACCESS, kAccesses);
    allow(io, SND_PCM_IOPLUG_HW_FORMAT, kSampleFormats);
    allow(io, SND_PCM_IOPLUG_HW_RATE, kRates);
    allowBetween(io, SND_PCM_IOPLUG_HW_CHANNELS, channels, channels);
    allowBetween(io, SND_PCM_IOPLUG_HW_PERIOD_BYTES, smallestFrame * kShortestPeriod,
                 longestBuffer / 2);
    allowBetween(io, SND_PCM_IOPLUG_HW_BUFFER_BYTES, smallestFrame * kShortestPeriod * 2,
                 longestBuffer);
    allowBetween(io, SND_PCM_IOPLUG_HW_PERIODS, 2, 1024);
}

std::unique_ptr<RoomPcm> makePcm(const RoomDescription& room, snd_pcm_stream_t direction) {
    if (direction == SND_PCM_STREAM_PLAYBACK)
        return std::make_unique<PlaybackPcm>(room);
    return std::make_unique<CapturePcm>(room);
}

unsigned int channelsOf(const RoomDescription& room, snd_pcm_stream_t direction) {
    return direction == SND_PCM_STREAM_PLAYBACK ? static_cast<unsigned int>(room.speakers.size())
                                                : 1;
}

snd_pcm_t* openPcm(const char* name, const Entry& entry, snd_pcm_stream_t direction, int mode) {
    checkRole(entry, direction);
    const RoomDescription room = readRoomDescription(entry.room, chosenMicrophone(entry));
    std::unique_ptr<RoomPcm> pcm = makePcm(room, direction);
    snd_pcm_ioplug_t& io = pcm->io;
    io.version = SND_PCM_IOPLUG_VERSION;
    io.name = "Simulated room";
    io.flags = SND_PCM_IOPLUG_FLAG_MONOTONIC | SND_PCM_IOPLUG_FLAG_BOUNDARY_WA;
    io.poll_fd = pcm->stream().pollFd();
    io.poll_events = POLLIN;
    io.callback = &kCallbacks;
    io.private_data = pcm.get();
    check(snd_pcm_ioplug_create(&io, name, direction, mode));
    // From here on closing the handle deletes the RoomPcm.
    std::unique_ptr<snd_pcm_t, int (*)(snd_pcm_t*)> handle(pcm.release()->io.pcm, snd_pcm_close);
    io.nonblock = (mode & SND_PCM_NONBLOCK) != 0 ? 1 : 0;
    constrain(io, channelsOf(room, direction));
    return handle.release();
}

}  // namespace
}  // namespace roomsim

// alsa-lib finds the plug-in by these two names.
#pragma GCC visibility push(default)
extern "C" {

SND_PCM_PLUGIN_DEFINE_FUNC(veskroom) {
    (void)root;
    return roomsim::guarded([=] {
        *pcmp = roomsim::openPcm(name, roomsim::readEntry(conf), stream, mode);
        return 0;
    });
}

SND_PCM_PLUGIN_SYMBOL(veskroom)
}
#pragma GCC visibility pop
