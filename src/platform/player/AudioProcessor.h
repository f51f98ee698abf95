#pragma once

#include "platform/player/AudioFormat.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace platform {

/// What happens to the audio between the volume and the loudspeakers, such as a room correction.
class AudioProcessor {
public:
    virtual ~AudioProcessor() = default;

    /// Audio of `format` comes next. Not in the audio thread; no process() runs meanwhile.
    virtual void prepare(const AudioFormat& format) = 0;

    /// Frames by which process() delays the audio; constant after prepare(). The player lets as
    /// much silence follow when audio ends, so that nothing of it stays behind.
    virtual std::size_t latency() const { return 0; }

    /// Processes whole frames in place. In the audio thread: must not allocate or wait.
    virtual void process(std::span<std::int32_t> samples) noexcept = 0;
};

/// Changes nothing.
class PassThrough : public AudioProcessor {
public:
    void prepare(const AudioFormat& /*format*/) override {}
    void process(std::span<std::int32_t> /*samples*/) noexcept override {}
};

}  // namespace platform
