#pragma once

#include "platform/player/AudioFormat.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace platform {

/// Where the player's audio comes from. One thread; no operation waits; failures are exceptions.
class AudioSource {
public:
    virtual ~AudioSource() = default;

    /// Looks for news. `handedOver` is how many frames, of all that read() has given, have reached
    /// the output.
    virtual void update(std::uint64_t handedOver) = 0;

    /// The format of the frames that read() gives next; none before it is known. It may change
    /// where a read() has given nothing.
    virtual std::optional<AudioFormat> format() const = 0;

    /// Copies as many whole frames as there are and `samples` has room for; the number of samples.
    virtual std::size_t read(std::span<std::int32_t> samples) = 0;

    /// Nothing comes for now, and silence is in order.
    virtual bool isResting() const = 0;

    /// Nothing will come any more.
    virtual bool isOver() const = 0;

    /// Readable when update() may find news; -1 when none are to be expected before more is read.
    virtual int descriptor() const = 0;
};

}  // namespace platform
