#include "platform/alsa/AlsaOutputDevice.h"

#include "platform/Log.h"
#include "platform/smt/FlowControl.h"

#include <algorithm>
#include <chrono>

namespace platform {

namespace {

constexpr snd_pcm_uframes_t kPeriod = 256;  // frames
constexpr std::chrono::seconds kLongestDrain{5};
constexpr std::chrono::milliseconds kBetweenLooks{2};  // while it plays its last frames

snd_pcm_uframes_t mostInDevice(unsigned rate) {
    return snd_pcm_uframes_t{rate} * smt::kMostInDevice.count() / 1000;
}

}  // namespace

AlsaOutputDevice::AlsaOutputDevice(const std::string& name, const AudioFormat& format,
                                   const WakeEvent& interrupt)
    : pcm_(name, SND_PCM_STREAM_PLAYBACK), interrupt_(interrupt), channels_(format.channels) {
    const snd_pcm_uframes_t wanted = mostInDevice(format.rate) / kPeriod * kPeriod;
    const snd_pcm_format_t able = pcm_.configure(convertibleFormats(), format.rate, format.channels,
                                                 {kPeriod, std::max(wanted, 2 * kPeriod)});
    // A device that insists on a larger buffer is filled in part.
    const snd_pcm_uframes_t bound = std::max(mostInDevice(format.rate), 2 * pcm_.period());
    most_ = std::min(bound, pcm_.buffer());
    warnOfLongPeriods(format.rate);
    pcm_.setThresholds(most_, pcm_.buffer() - most_ + pcm_.period());
    frameSize_ = static_cast<std::size_t>(snd_pcm_format_physical_width(able)) / 8 * channels_;
    convert_ = converterTo(able);
    block_.resize(pcm_.period() * frameSize_);
}

/// It plays nevertheless, but its sound comes later than whoever sends it expects.
void AlsaOutputDevice::warnOfLongPeriods(unsigned rate) const {
    if (most_ <= mostInDevice(rate))
        return;
    LOG4CPLUS_WARN(logger, "\"" << pcm_.name() << "\": holds " << most_ * 1000 / rate
                                << " ms of audio, more than " << smt::kMostInDevice.count()
                                << " ms, because its periods have " << pcm_.period() << " frames");
}

bool AlsaOutputDevice::write(std::span<const std::int32_t> samples) {
    pcm_.expectMovement();
    while (!samples.empty()) {
        const auto piece =
            samples.first(std::min(samples.size(), std::size_t{pcm_.period()} * channels_));
        convert_(piece, block_.data());
        const snd_pcm_uframes_t frames = piece.size() / channels_;
        for (snd_pcm_uframes_t done = 0; done < frames;) {
            if (interrupt_.isSignalled())
                return false;
            writeSome(block_.data() + done * frameSize_, frames - done, &done);
        }
        samples = samples.subspan(piece.size());
    }
    return true;
}

/// Writes what there is room for, or waits until there is some.
void AlsaOutputDevice::writeSome(const std::byte* bytes, snd_pcm_uframes_t frames,
                                 snd_pcm_uframes_t* done) {
    const snd_pcm_uframes_t free = room();
    if (free < std::min(frames, pcm_.period()))
        return awaitRoom();
    const auto written = snd_pcm_writei(pcm_.get(), bytes, std::min(frames, free));
    if (written == -EAGAIN)
        return awaitRoom();
    if (written < 0)
        return recover(static_cast<int>(written));
    pcm_.expectMovement();
    *done += static_cast<snd_pcm_uframes_t>(written);
}

/// Frames that may be written now.
snd_pcm_uframes_t AlsaOutputDevice::room() {
    const auto available = snd_pcm_avail_update(pcm_.get());
    if (available < 0) {
        recover(static_cast<int>(available));
        return most_;
    }
    const auto free = static_cast<snd_pcm_uframes_t>(available);
    const snd_pcm_uframes_t queued = pcm_.buffer() - std::min(free, pcm_.buffer());
    return most_ - std::min(queued, most_);
}

void AlsaOutputDevice::awaitRoom() {
    if (snd_pcm_state(pcm_.get()) == SND_PCM_STATE_PREPARED)
        pcm_.check(snd_pcm_start(pcm_.get()), "start");
    if (const int error = pcm_.wait(&interrupt_); error < 0)
        recover(error);
}

bool AlsaOutputDevice::drain() {
    const auto end = std::chrono::steady_clock::now() + kLongestDrain;
    int result = snd_pcm_drain(pcm_.get());
    while (result == -EAGAIN && snd_pcm_state(pcm_.get()) == SND_PCM_STATE_DRAINING &&
           std::chrono::steady_clock::now() < end) {
        const int descriptor = interrupt_.descriptor();
        waitForInput({&descriptor, 1}, kBetweenLooks);
        if (interrupt_.isSignalled())
            return false;
        snd_pcm_avail_update(pcm_.get());
    }
    snd_pcm_drop(pcm_.get());
    pcm_.check(snd_pcm_prepare(pcm_.get()), "be made ready again");
    return true;
}

void AlsaOutputDevice::recover(int error) {
    if (error == -EPIPE)
        ++underruns_;
    pcm_.recover(error, "play");
}

}  // namespace platform
