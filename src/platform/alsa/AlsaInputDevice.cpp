#include "sdk/alsa/AlsaInputDevice.h"

#include "platform/Log.h"
#include "platform/alsa/Pcm.h"
#include "platform/alsa/XrunLog.h"

#include <algorithm>
#include <cstdint>
#include <optional>

using platform::AlsaError;
using platform::logger;
using platform::Pcm;
using platform::XrunLog;

namespace {

/// Readers take small blocks as they come, so that a period must not be longer than such a block.
constexpr snd_pcm_uframes_t kLongestPeriod = 128;  // frames

constexpr unsigned kMillisecondsPerSecond = 1000;

snd_pcm_uframes_t framesIn(int milliseconds, int rate) {
    return static_cast<snd_pcm_uframes_t>(std::max(milliseconds, 1)) *
           static_cast<snd_pcm_uframes_t>(std::max(rate, 1)) / kMillisecondsPerSecond;
}

}  // namespace

class AlsaInputDevice::Private {
public:
    Private(const QString& name, int sampleRate, unsigned channels, snd_pcm_format_t format,
            int periodMilliseconds, int bufferMilliseconds)
        : name_(name.toStdString()),
          rate_(sampleRate),
          channels_(channels),
          format_(format),
          sizes_{std::clamp<snd_pcm_uframes_t>(framesIn(periodMilliseconds, sampleRate), 1,
                                               kLongestPeriod),
                 framesIn(bufferMilliseconds, sampleRate)},
          log_('"' + name_ + '"', "overrun") {}

    int bytesPerSample() const { return std::max(snd_pcm_format_physical_width(format_), 0) / 8; }
    int channels() const { return static_cast<int>(channels_); }

    void open() {
        pcm_.reset();
        wake_ = 0;
        pcm_.emplace(name_, SND_PCM_STREAM_CAPTURE);
        pcm_->configure({format_}, static_cast<unsigned>(rate_), channels_, sizes_);
    }

    void close() { pcm_.reset(); }

    void read(QByteArray& data, int frames) {
        if (!pcm_)
            throw AlsaError("\"" + name_ + "\": is not open");
        const int frameSize = bytesPerSample() * channels();
        data.resize(frames * frameSize);
        wakeAt(static_cast<snd_pcm_uframes_t>(frames));
        pcm_->expectMovement();
        for (int done = 0; done < frames;)
            done += readSome(data.data() + static_cast<std::ptrdiff_t>(done) * frameSize,
                             frames - done);
    }

private:
    /// Waits for blocks as long as the reader's.
    void wakeAt(snd_pcm_uframes_t frames) {
        const snd_pcm_uframes_t wake = std::clamp<snd_pcm_uframes_t>(frames, 1, pcm_->buffer());
        if (wake != wake_)
            pcm_->setThresholds(1, wake);
        wake_ = wake;
    }

    /// Reads all that is wanted at once, or waits for it: a piece would make the rest come late.
    int readSome(char* to, int frames) {
        start();
        const auto wanted =
            std::min<snd_pcm_sframes_t>(frames, static_cast<snd_pcm_sframes_t>(wake_));
        auto got = snd_pcm_avail_update(pcm_->get());
        if (got >= wanted)
            got = snd_pcm_readi(pcm_->get(), to, static_cast<snd_pcm_uframes_t>(wanted));
        else if (got >= 0)
            got = -EAGAIN;
        if (got == -EAGAIN)
            got = pcm_->wait(nullptr);
        else if (got > 0)
            pcm_->expectMovement();
        if (got < 0)
            recover(static_cast<int>(got));
        return static_cast<int>(std::max<snd_pcm_sframes_t>(got, 0));
    }

    void start() const {
        if (snd_pcm_state(pcm_->get()) == SND_PCM_STATE_PREPARED)
            pcm_->check(snd_pcm_start(pcm_->get()), "start");
    }

    void recover(int error) {
        if (error == -EPIPE)
            log_.report(++overruns_);
        pcm_->recover(error, "record");
    }

    const std::string name_;
    const int rate_;
    const unsigned channels_;
    const snd_pcm_format_t format_;
    const Pcm::Sizes sizes_;
    XrunLog log_;
    std::uint64_t overruns_{0};
    std::optional<Pcm> pcm_;     // none: not open
    snd_pcm_uframes_t wake_{0};  // frames; 0: not yet set
};

AlsaInputDevice::AlsaInputDevice(const QString& name, int sampleRate, unsigned channels,
                                 snd_pcm_format_t format, int periodMilliseconds,
                                 int bufferMilliseconds)
    : private_(std::make_unique<Private>(name, sampleRate, channels, format, periodMilliseconds,
                                         bufferMilliseconds)) {
}

AlsaInputDevice::~AlsaInputDevice() = default;

bool AlsaInputDevice::open() {
    try {
        private_->open();
        return true;
    } catch (const AlsaError& error) {
        LOG4CPLUS_ERROR(logger, "Input device " << error.what());
        private_->close();
        return false;
    }
}

int AlsaInputDevice::bytesPerSample() const {
    return private_->bytesPerSample();
}

int AlsaInputDevice::channels() const {
    return private_->channels();
}

bool AlsaInputDevice::read(QByteArray& data, int frames) {
    try {
        private_->read(data, frames);
        return true;
    } catch (const AlsaError& error) {
        LOG4CPLUS_ERROR(logger, "Input device " << error.what());
        data.clear();
        private_->close();
        return false;
    }
}
