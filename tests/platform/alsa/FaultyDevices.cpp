// The ALSA plug-in behind FaultyDevices.h.

#include <alsa/asoundlib.h>
#include <alsa/pcm_external.h>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

namespace {

constexpr snd_pcm_uframes_t kAhead = 512;        // frames, captured but not read, or not yet played
constexpr snd_pcm_uframes_t kFramesLong = 4146;  // of a life; no whole number of blocks
constexpr unsigned kCoarsePeriod = 4096;         // frames

enum class Fault { Unplugged, Erring, Waking, Suspended, Xrunning, Lame, None };

class Device {
public:
    explicit Device(Fault fault) : fault_(fault), descriptor_(eventfd(1, EFD_CLOEXEC)) {}
    ~Device() { close(descriptor_); }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    static Device& of(snd_pcm_ioplug_t* io) { return *static_cast<Device*>(io->private_data); }

    int descriptor() const { return descriptor_; }

    void prepare() {
        if (fault_ != Fault::Lame)
            position_ = 0;
    }

    snd_pcm_sframes_t pointer() {
        if (!isOver())
            advance();
        if (isOver() && (fault_ == Fault::Xrunning || fault_ == Fault::Lame))
            return -EPIPE;
        if (isOver() && fault_ == Fault::Unplugged)
            io.state = SND_PCM_STATE_DISCONNECTED;
        if (isOver() && fault_ == Fault::Suspended)
            io.state = SND_PCM_STATE_SUSPENDED;
        return static_cast<snd_pcm_sframes_t>(position_);
    }

    unsigned short events() const {
        const unsigned short ready = io.stream == SND_PCM_STREAM_PLAYBACK ? POLLOUT : POLLIN;
        const bool fails = isOver() && fault_ != Fault::Waking;
        return static_cast<unsigned short>(fails ? ready | POLLERR : ready);
    }

    snd_pcm_ioplug_t io{};

private:
    bool isOver() const { return fault_ != Fault::None && position_ >= kFramesLong; }

    void advance() {
        const snd_pcm_uframes_t applied = io.appl_ptr;
        const snd_pcm_uframes_t reached = io.stream == SND_PCM_STREAM_CAPTURE ? applied + kAhead
                                          : io.state == SND_PCM_STATE_DRAINING
                                              ? applied
                                              : applied - std::min(applied, kAhead);
        position_ = std::max(position_, reached);
        if (fault_ != Fault::None)
            position_ = std::min(position_, kFramesLong);
    }

    const Fault fault_;
    const int descriptor_;  // always readable
    snd_pcm_uframes_t position_{0};
};

const snd_pcm_ioplug_callback_t kCallbacks = [] {
    snd_pcm_ioplug_callback_t callbacks{};
    callbacks.start = [](snd_pcm_ioplug_t*) { return 0; };
    callbacks.stop = [](snd_pcm_ioplug_t*) { return 0; };
    callbacks.pointer = [](snd_pcm_ioplug_t* io) { return Device::of(io).pointer(); };
    callbacks.transfer = [](snd_pcm_ioplug_t*, const snd_pcm_channel_area_t*, snd_pcm_uframes_t,
                            snd_pcm_uframes_t size) {
        return static_cast<snd_pcm_sframes_t>(size);
    };
    callbacks.prepare = [](snd_pcm_ioplug_t* io) {
        Device::of(io).prepare();
        return 0;
    };
    callbacks.poll_revents = [](snd_pcm_ioplug_t* io, pollfd*, unsigned, unsigned short* events) {
        *events = Device::of(io).events();
        return 0;
    };
    callbacks.close = [](snd_pcm_ioplug_t* io) {
        delete &Device::of(io);
        return 0;
    };
    return callbacks;
}();

Fault faultOf(const std::string& name) {
    constexpr std::array kNames{"unplugged", "erring", "waking", "suspended", "xrunning", "lame"};
    return static_cast<Fault>(std::ranges::find(kNames, name) - kNames.begin());
}

/// The value of "fault"; empty when there is none.
std::string faultIn(snd_config_t* configuration) {
    snd_config_t* node = nullptr;
    const char* text = nullptr;
    if (snd_config_search(configuration, "fault", &node) < 0 ||
        snd_config_get_string(node, &text) < 0)
        return "";
    return text;
}

int open(snd_pcm_t** pcm, const char* name, const std::string& fault, snd_pcm_stream_t direction,
         int mode) {
    auto device = std::make_unique<Device>(faultOf(fault));
    snd_pcm_ioplug_t& io = device->io;
    io.version = SND_PCM_IOPLUG_VERSION;
    io.name = "A device that fails";
    io.flags = SND_PCM_IOPLUG_FLAG_BOUNDARY_WA;
    io.poll_fd = device->descriptor();
    io.poll_events = POLLIN;
    io.callback = &kCallbacks;
    io.private_data = device.get();
    if (const int result = snd_pcm_ioplug_create(&io, name, direction, mode); result < 0)
        return result;
    device.release();  // closing the PCM deletes it
    const std::array<unsigned, 1> access{SND_PCM_ACCESS_RW_INTERLEAVED};
    const std::array<unsigned, 1> format{SND_PCM_FORMAT_S32_LE};
    snd_pcm_ioplug_set_param_list(&io, SND_PCM_IOPLUG_HW_ACCESS, 1, access.data());
    snd_pcm_ioplug_set_param_list(&io, SND_PCM_IOPLUG_HW_FORMAT, 1, format.data());
    snd_pcm_ioplug_set_param_minmax(&io, SND_PCM_IOPLUG_HW_RATE, 8000, 192'000);
    snd_pcm_ioplug_set_param_minmax(&io, SND_PCM_IOPLUG_HW_CHANNELS, 1, 2);
    snd_pcm_ioplug_set_param_minmax(&io, SND_PCM_IOPLUG_HW_PERIODS, 2, 64);
    if (fault == "coarse")  // for 2 channels
        snd_pcm_ioplug_set_param_minmax(&io, SND_PCM_IOPLUG_HW_PERIOD_BYTES, kCoarsePeriod * 8,
                                        kCoarsePeriod * 8);
    *pcm = io.pcm;
    return 0;
}

}  // namespace

// alsa-lib finds the plug-in by these two names.
extern "C" {

SND_PCM_PLUGIN_DEFINE_FUNC(faulty) {
    (void)root;
    return open(pcmp, name, faultIn(conf), stream, mode);
}

SND_PCM_PLUGIN_SYMBOL(faulty)
}
