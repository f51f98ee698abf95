#pragma once

#include "platform/player/AudioFormat.h"

#include <cstdint>
#include <span>

namespace platform {

/// Where the player's audio goes. One thread; failures of the device are exceptions. It is used in
/// the audio thread, and while nothing fails it neither allocates nor waits for a lock there.
class AudioOutput {
public:
    virtual ~AudioOutput() = default;

    /// Takes whole frames; waits while the output is full. False when the wait was interrupted: the
    /// output is then at its end.
    virtual bool write(std::span<const std::int32_t> samples) = 0;

    /// Waits until everything has been heard; what is written afterwards begins anew. False when
    /// interrupted.
    virtual bool drain() = 0;

    /// How often the output ran dry without being drained. Any thread.
    virtual std::uint64_t underruns() const = 0;
};

}  // namespace platform
