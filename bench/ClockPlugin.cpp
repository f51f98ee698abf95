// An ALSA plug-in, type "veskclock": a microphone in real time whose frames tell when they were
// captured, see FrameTime.h. Mono, S32_LE, 48 kHz.

#include "FrameTime.h"

#include <alsa/asoundlib.h>
#include <alsa/pcm_external.h>

#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

namespace {

using frametime::Clock;

/// A PCM handle's private data.
class ClockPcm {
public:
    ClockPcm() = default;
    ~ClockPcm() { close(timer_); }
    ClockPcm(const ClockPcm&) = delete;
    ClockPcm& operator=(const ClockPcm&) = delete;

    /// Readable when as many frames are there as the application waits for.
    int timer() const { return timer_; }

    void setWake(snd_pcm_uframes_t frames) { wake_ = static_cast<std::int64_t>(frames); }

    int start() {
        first_ = frametime::frameAt(Clock::now()) + 1;
        return wakeAfter(0);
    }

    int stop() { return setTimer({}); }

    snd_pcm_sframes_t captured() const {
        return std::max<snd_pcm_sframes_t>(frametime::frameAt(Clock::now()) - first_, 0);
    }

    snd_pcm_sframes_t read(const snd_pcm_channel_area_t& area, snd_pcm_uframes_t offset,
                           snd_pcm_uframes_t count) {
        auto* const to = static_cast<std::byte*>(area.addr) + area.first / 8;
        for (snd_pcm_uframes_t i = 0; i < count; ++i) {
            const std::int32_t sample = frametime::sampleOf(first_ + position(i));
            std::memcpy(to + (offset + i) * area.step / 8, &sample, sizeof sample);
        }
        const int error = wakeAfter(position(count));
        return error < 0 ? error : static_cast<snd_pcm_sframes_t>(count);
    }

    snd_pcm_ioplug_t io{};

private:
    /// Frames from the start to the application's next one, and `ahead`.
    std::int64_t position(snd_pcm_uframes_t ahead) const {
        return static_cast<std::int64_t>(io.appl_ptr + ahead);
    }

    int wakeAfter(std::int64_t read) {
        return setTimer(frametime::beginOf(first_ + read + wake_).time_since_epoch());
    }

    /// At this time of the monotonic clock; zero: never.
    int setTimer(std::chrono::nanoseconds time) const {
        const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
        itimerspec setting{};
        setting.it_value.tv_sec = seconds.count();
        setting.it_value.tv_nsec = (time - seconds).count();
        return timerfd_settime(timer_, TFD_TIMER_ABSTIME, &setting, nullptr) < 0 ? -errno : 0;
    }

    const int timer_{timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)};
    std::int64_t first_{0};  // number of the first frame since the start
    std::int64_t wake_{1};   // frames
};

ClockPcm& pcmOf(snd_pcm_ioplug_t* io) {
    return *static_cast<ClockPcm*>(io->private_data);
}

int onStart(snd_pcm_ioplug_t* io) {
    return pcmOf(io).start();
}

int onStop(snd_pcm_ioplug_t* io) {
    return pcmOf(io).stop();
}

snd_pcm_sframes_t onPointer(snd_pcm_ioplug_t* io) {
    const snd_pcm_sframes_t captured = pcmOf(io).captured();
    const auto read = static_cast<snd_pcm_sframes_t>(io->appl_ptr);
    return captured - read > static_cast<snd_pcm_sframes_t>(io->buffer_size) ? -EPIPE : captured;
}

snd_pcm_sframes_t onTransfer(snd_pcm_ioplug_t* io, const snd_pcm_channel_area_t* areas,
                             snd_pcm_uframes_t offset, snd_pcm_uframes_t size) {
    return pcmOf(io).read(*areas, offset, size);
}

int onSwParams(snd_pcm_ioplug_t* io, snd_pcm_sw_params_t* params) {
    snd_pcm_uframes_t wake = 1;
    const int error = snd_pcm_sw_params_get_avail_min(params, &wake);
    pcmOf(io).setWake(wake);
    return error;
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
    callbacks.sw_params = onSwParams;
    callbacks.close = onClose;
    return callbacks;
}();

/// Negative: an error.
int constrain(snd_pcm_ioplug_t* io) {
    constexpr unsigned kFrame = sizeof(std::int32_t);  // bytes
    constexpr unsigned kAccess = SND_PCM_ACCESS_RW_INTERLEAVED;
    constexpr unsigned kFormat = SND_PCM_FORMAT_S32_LE;
    const auto between = [io](int parameter, unsigned lowest, unsigned highest) {
        return snd_pcm_ioplug_set_param_minmax(io, parameter, lowest, highest);
    };
    return std::min({
        snd_pcm_ioplug_set_param_list(io, SND_PCM_IOPLUG_HW_ACCESS, 1, &kAccess),
        snd_pcm_ioplug_set_param_list(io, SND_PCM_IOPLUG_HW_FORMAT, 1, &kFormat),
        between(SND_PCM_IOPLUG_HW_RATE, frametime::kRate, frametime::kRate),
        between(SND_PCM_IOPLUG_HW_CHANNELS, 1, 1),
        between(SND_PCM_IOPLUG_HW_PERIOD_BYTES, 16 * kFrame, 8192 * kFrame),
        between(SND_PCM_IOPLUG_HW_BUFFER_BYTES, 32 * kFrame, 16384 * kFrame),
        between(SND_PCM_IOPLUG_HW_PERIODS, 2, 1024),
    });
}

int openPcm(snd_pcm_t** handle, const char* name, snd_pcm_stream_t direction, int mode) {
    if (direction != SND_PCM_STREAM_CAPTURE)
        return -EINVAL;
    auto pcm = std::make_unique<ClockPcm>();
    snd_pcm_ioplug_t& io = pcm->io;
    io.version = SND_PCM_IOPLUG_VERSION;
    io.name = "Clock";
    io.flags = SND_PCM_IOPLUG_FLAG_MONOTONIC | SND_PCM_IOPLUG_FLAG_BOUNDARY_WA;
    io.poll_fd = pcm->timer();
    io.poll_events = POLLIN;
    io.callback = &kCallbacks;
    io.private_data = pcm.get();
    if (const int error = snd_pcm_ioplug_create(&io, name, direction, mode); error < 0)
        return error;
    snd_pcm_ioplug_t* const plug = &pcm.release()->io;  // closing the handle deletes it
    if (const int error = constrain(plug); error < 0) {
        snd_pcm_ioplug_delete(plug);
        return error;
    }
    *handle = plug->pcm;
    return 0;
}

}  // namespace

// alsa-lib finds the plug-in by these two names.
#pragma GCC visibility push(default)
extern "C" {

SND_PCM_PLUGIN_DEFINE_FUNC(veskclock) {
    (void)root;
    (void)conf;
    return openPcm(pcmp, name, stream, mode);
}

SND_PCM_PLUGIN_SYMBOL(veskclock)
}
#pragma GCC visibility pop
