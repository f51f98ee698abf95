#pragma once

#include "platform/WakeEvent.h"
#include "platform/player/AudioOutput.h"

#include <chrono>

namespace platform {

/// An output for a device without a sound device: takes audio at the speed at which a loudspeaker
/// would, by the process's clock, and nobody hears it.
class SilentOutput : public AudioOutput {
public:
    /// A signalled `interrupt`, which must outlive the object, ends every wait.
    SilentOutput(const AudioFormat& format, const WakeEvent& interrupt);

    bool write(std::span<const std::int32_t> samples) override;
    bool drain() override;
    std::uint64_t underruns() const override { return 0; }

private:
    using Clock = std::chrono::steady_clock;

    bool waitUntil(Clock::time_point moment) const;

    const AudioFormat format_;
    const WakeEvent& interrupt_;
    Clock::time_point heard_{};  // when everything written will have been heard
};

}  // namespace platform
