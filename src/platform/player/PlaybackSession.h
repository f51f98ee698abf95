#pragma once

#include "platform/WakeEvent.h"
#include "platform/alsa/XrunLog.h"
#include "platform/player/AudioOutput.h"
#include "platform/player/AudioPipeline.h"
#include "platform/player/AudioProcessor.h"
#include "platform/player/AudioSource.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace platform {

/// Plays one source, from its first frame to its last, and opens the output when the first frames
/// have come: only they tell the format. One thread.
class PlaybackSession {
public:
    using OpenOutput = std::function<std::unique_ptr<AudioOutput>(const AudioFormat&)>;

    /// What a session uses and does not own; all of it outlives the session.
    struct Surroundings {
        OpenOutput openOutput;  ///< may throw
        const std::atomic<double>& gain;
        AudioProcessor& processor;
        const WakeEvent& interrupt;        ///< ends the session at once
        std::function<void()> onPlaying;   ///< the output is open and gets its first frames
        std::function<void()> onProgress;  ///< called again and again
    };

    PlaybackSession(std::unique_ptr<AudioSource> source, const Surroundings& surroundings);

    /// Returns when the source is over and everything has been heard, or when interrupted. Throws
    /// std::exception when source or output fail.
    void run();

    std::uint64_t frames() const;     ///< that have reached the output
    std::uint64_t underruns() const;  ///< of the output, and of the source

private:
    void step();
    void openPipeline();
    void closePipeline();
    void fill();
    bool isDone() const;
    void wait() const;

    const std::unique_ptr<AudioSource> source_;
    const Surroundings surroundings_;
    WakeEvent progress_;  // of the pipeline
    std::unique_ptr<AudioPipeline> pipeline_;
    std::uint64_t framesBefore_{0};     // of pipelines that are closed
    std::uint64_t underrunsBefore_{0};  // of pipelines that are closed
    // Here, because the audio thread must not wait for a log.
    XrunLog underrunLog_{"Playback", "underrun"};
    std::vector<std::int32_t> piece_;
    bool busy_{false};  // the last step has found something to do
};

}  // namespace platform
