#pragma once

#include "platform/WakeEvent.h"
#include "platform/player/AudioOutput.h"
#include "platform/player/AudioProcessor.h"
#include "platform/player/FrameRing.h"
#include "platform/player/Volume.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace platform {

/// The audio thread: takes frames of one format, block by block, through the volume and the
/// processor to the output. It neither allocates nor waits for a lock between two blocks.
///
/// One thread uses the object, which the audio thread wakes through `progress`.
class AudioPipeline {
public:
    /// What the pipeline uses and does not own; all of it outlives the pipeline.
    struct Surroundings {
        const std::atomic<double>& gain;  ///< of the volume, may change at any time
        AudioProcessor& processor;
        const WakeEvent& interrupt;  ///< ends the audio thread at once; the output's, too
        WakeEvent& progress;         ///< signalled whenever frames have been handed over
    };

    AudioPipeline(const AudioFormat& format, std::unique_ptr<AudioOutput> output,
                  const Surroundings& surroundings);
    /// Ends the audio thread, which must have been interrupted or have finished.
    ~AudioPipeline();
    AudioPipeline(const AudioPipeline&) = delete;
    AudioPipeline& operator=(const AudioPipeline&) = delete;

    const AudioFormat& format() const { return format_; }

    /// Samples that write() takes at present, whole frames.
    std::size_t room() const;
    void write(std::span<const std::int32_t> samples);

    /// Whether the absence of frames is in order, and no underrun.
    void setResting(bool resting) { resting_ = resting; }

    /// No frames follow: the audio thread plays what it has, and ends.
    void finish();
    bool isFinished() const { return finished_; }
    /// Why the output has failed; empty when it has not. Once the pipeline is finished.
    const std::string& failure() const { return failure_; }

    std::uint64_t handedOver() const { return handedOver_; }  ///< frames
    std::uint64_t underruns() const { return starved_ + output_->underruns(); }

private:
    void run();
    bool playBlock();
    bool awaitFrames(bool isLast);
    bool rest();
    bool flushProcessor();

    const AudioFormat format_;
    const std::unique_ptr<AudioOutput> output_;
    const Surroundings surroundings_;
    FrameRing ring_;
    WakeEvent supplied_;  // frames or the end have come

    std::atomic<bool> closed_{false};
    std::atomic<bool> resting_{false};
    std::atomic<bool> finished_{false};
    std::atomic<std::uint64_t> handedOver_{0};
    std::atomic<std::uint64_t> starved_{0};

    // The audio thread's; failure_ is handed over by finished_.
    Volume volume_;
    std::vector<std::int32_t> block_;
    std::size_t latency_{0};  // frames, of the processor
    bool sounding_{false};    // something was written since the output was last drained
    bool wasLate_{false};     // the output was drained because nothing came
    std::string failure_;

    std::thread thread_;  // the last member: it uses the others
};

}  // namespace platform
