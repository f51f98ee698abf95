#include "platform/player/AudioPipeline.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

using platform::AudioPipeline;

namespace {

/// Takes everything at once.
class OpenEnd : public platform::AudioOutput {
public:
    bool write(std::span<const std::int32_t> /*samples*/) override { return true; }
    bool drain() override { return true; }
    std::uint64_t underruns() const override { return 0; }
};

void spinFor(std::chrono::nanoseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) {
    }
}

class AudioPipelineTest : public testing::Test {
protected:
    /// Begins, finishes after `pause`, and tells whether the audio thread noticed.
    bool endsAfter(std::chrono::nanoseconds pause) {
        AudioPipeline pipeline({48000, 1}, std::make_unique<OpenEnd>(),
                               {gain, passThrough, interrupt, progress});
        spinFor(pause);
        pipeline.finish();
        const int descriptor = progress.descriptor();
        platform::waitForInput({&descriptor, 1}, kSoon);
        interrupt.signal();  // frees an audio thread that sleeps
        return pipeline.isFinished();
    }

    static constexpr std::chrono::seconds kSoon{5};

    const std::atomic<double> gain{1.0};
    platform::PassThrough passThrough;
    platform::WakeEvent interrupt;
    platform::WakeEvent progress;
};

}  // namespace

TEST_F(AudioPipelineTest, EndsWheneverItIsFinished) {
    for (int i = 0; i < 5000; ++i) {
        interrupt.clear();
        progress.clear();
        ASSERT_TRUE(endsAfter(std::chrono::nanoseconds(i % 500 * 100))) << "round " << i;
    }
}
