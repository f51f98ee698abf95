#pragma once

#include "dsp/AlignedBuffer.h"
#include "dsp/Crossfader.h"
#include "dsp/Engine.h"
#include "dsp/EngineHandover.h"
#include "dsp/ImageReader.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace dsp {

/// The DSP in a device's audio path: follows the segment and corrects a stream of PCM.
///
/// From the first stream on, a thread of its own looks at the segment every 10 ms and makes an
/// engine of each new image, which process() then fades to. Without a segment the stream passes
/// untouched, with the same latency.
class Processor {
public:
    /// Takes a line of text for whoever looks after the device, in the thread that looks at the
    /// segment or the one that calls prepare(). Must not call back.
    using Report = std::function<void(const std::string&)>;

    /// `key` is that of the segment and of its lock.
    Processor(int key, Report report);
    ~Processor();
    Processor(const Processor&) = delete;
    Processor& operator=(const Processor&) = delete;

    /// A stream of `format` comes next; it starts with the present image, without a fade. Takes a
    /// millisecond or two. Not while process() runs.
    void prepare(const StreamFormat& format);

    /// Processes whole frames of interleaved channels in place. What exceeds full scale is clipped.
    /// For the audio thread: neither allocates nor waits. Without a format it changes nothing.
    void process(std::span<std::int32_t> samples) noexcept;

    /// Leaves the segment; from then on the last image serves. The segment is removed by whoever
    /// leaves it last, and that should be its owner. Any thread but the audio thread.
    void stopFollowing();

    /// Frames between input and output in the present format.
    [[nodiscard]] std::size_t latency() const { return Engine::latency(format_.rate); }

private:
    static constexpr std::size_t kBlock = kTransformSize;

    void follow();
    void look();
    void report();
    std::unique_ptr<Engine> makeEngine();
    void processBlock(std::span<std::int32_t> samples);

    const Report report_;

    // The audio thread's, and prepare()'s while that does not run.
    StreamFormat format_{48000, 0};
    std::optional<Crossfader> fader_;
    AlignedBuffer<double> storage_;
    std::vector<double*> input_;
    std::vector<double*> output_;

    EngineHandover handover_;

    std::mutex mutex_;
    std::condition_variable stopped_;
    bool stop_{false};                   ///< guarded by mutex_
    ImageReader reader_;                 ///< guarded by mutex_
    StreamFormat engineFormat_;          ///< guarded by mutex_
    std::vector<std::string> reported_;  ///< guarded by mutex_
    std::vector<std::string> problems_;  ///< of the last engine; guarded by mutex_
    std::thread thread_;                 ///< guarded by mutex_
};

}  // namespace dsp
