#pragma once

#include "roomsim/PartitionedConvolver.h"
#include "roomsim/SincKernel.h"
#include "roomsim/Timeline.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace roomsim {

/// What arrives at the microphone: the speakers' signals convolved with the room's responses and
/// seen by the capture clock. While that runs at the speakers' rate, without drift, the samples
/// coincide; else the sound between them is interpolated. One thread at a time.
class MicrophoneSignal {
public:
    /// Copies `count` frames, from `frame` of the speakers' grid on, to one array per speaker.
    /// Frames may be negative.
    using ReadSpeakers =
        std::function<void(std::int64_t frame, float* const* target, std::size_t count)>;

    struct Timing {
        unsigned int speakerRate;  ///< Hz, of the responses and of the speakers' grid
        unsigned int captureRate;  ///< Hz
        bool drifts;               ///< the capture clock does
        double latency;            ///< s; interpolation needs a few milliseconds, and takes them
    };

    MicrophoneSignal(const std::vector<std::vector<float>>& responses, const Timing& timing);
    MicrophoneSignal(const MicrophoneSignal&) = delete;
    MicrophoneSignal& operator=(const MicrophoneSignal&) = delete;

    [[nodiscard]] unsigned int speakerRate() const { return speakerRate_; }

    /// The capture frames begin anew, at the times that `clock` tells.
    void start(const StreamClock& clock);

    /// Renders `count` capture frames from `frame` on, after start(). Frames in order are cheap; a
    /// jump costs as much again as the responses are long.
    void render(std::int64_t frame, float* output, std::size_t count,
                const ReadSpeakers& readSpeakers);

private:
    void renderAligned(std::int64_t frame, float* output, std::size_t count,
                       const ReadSpeakers& readSpeakers);
    void renderInterpolated(std::int64_t frame, float* output, std::size_t count,
                            const ReadSpeakers& readSpeakers);
    void moveWindow(std::int64_t begin, const ReadSpeakers& readSpeakers);
    void extendWindow(std::int64_t end, const ReadSpeakers& readSpeakers);
    void seek(std::int64_t speakerFrame, const ReadSpeakers& readSpeakers);
    void convolve(std::size_t count, float* output, const ReadSpeakers& readSpeakers);
    [[nodiscard]] double speakerFrameAt(std::int64_t captureFrame) const;

    unsigned int speakerRate_;
    PartitionedConvolver convolver_;
    std::optional<SincKernel> kernel_;  ///< none while the samples coincide
    double latency_;                    ///< frames of the speakers' grid
    std::optional<StreamClock> clock_;
    std::optional<std::int64_t> next_;       ///< the speaker frame that the convolver takes next
    std::vector<std::vector<float>> block_;  ///< speaker frames on their way to the convolver
    std::vector<float*> blockChannels_;
    std::vector<float> window_;  ///< convolved, for the kernel; it ends before next_
};

}  // namespace roomsim
