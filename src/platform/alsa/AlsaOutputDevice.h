#pragma once

#include "platform/alsa/Pcm.h"
#include "platform/alsa/SampleConversion.h"
#include "platform/player/AudioOutput.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace platform {

/// An ALSA playback device. It takes 32-bit samples and converts them to the best format that the
/// device can: S32_LE, S24_3LE, FLOAT_LE or S16_LE. At most smt::kMostInDevice of audio lie in it,
/// or two of its periods, with a warning, where these are longer.
///
/// While nothing fails it neither allocates nor waits for a lock; an underrun is no failure.
class AlsaOutputDevice : public AudioOutput {
public:
    /// Opens the device. A signalled `interrupt`, which must outlive the object, ends every wait.
    /// Throws AlsaError when the device is missing, busy, or cannot do the format's rate or number
    /// of channels.
    AlsaOutputDevice(const std::string& name, const AudioFormat& format,
                     const WakeEvent& interrupt);

    bool write(std::span<const std::int32_t> samples) override;
    bool drain() override;
    std::uint64_t underruns() const override { return underruns_; }

private:
    void warnOfLongPeriods(unsigned rate) const;
    snd_pcm_uframes_t room();
    void awaitRoom();
    void writeSome(const std::byte* bytes, snd_pcm_uframes_t frames, snd_pcm_uframes_t* done);
    void recover(int error);

    Pcm pcm_;
    const WakeEvent& interrupt_;
    const unsigned channels_;
    std::atomic<std::uint64_t> underruns_{0};
    snd_pcm_uframes_t most_{0};  // frames that may lie in the device
    std::size_t frameSize_{0};   // bytes
    SampleConverter convert_{nullptr};
    std::vector<std::byte> block_;  // a period in the device's format
};

}  // namespace platform
