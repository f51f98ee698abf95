#include "dsp/Processor.h"
#include "dsp/RealTimeWatch.h"
#include "dsp/Signals.h"
#include "dsp/TestImage.h"
#include "sdk/services/SharedLock.h"
#include "segment/TestSegment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <limits>
#include <mutex>
#include <optional>
#include <random>
#include <thread>

namespace dsp {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Samples = std::vector<std::int32_t>;

constexpr std::size_t kBlock = 128;

/// What a processor says.
class Reports {
public:
    Processor::Report taker() {
        return [this](const std::string& text) {
            const std::lock_guard guard(mutex_);
            texts_.push_back(text);
            changed_.notify_all();
        };
    }
    std::vector<std::string> texts() {
        const std::lock_guard guard(mutex_);
        return texts_;
    }
    bool await(const std::string& part) {
        std::unique_lock guard(mutex_);
        return changed_.wait_for(guard, std::chrono::seconds(20), [&] {
            return std::ranges::any_of(
                texts_, [&](const auto& text) { return text.find(part) != text.npos; });
        });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> texts_;
};

class ProcessorTest : public testing::Test {
protected:
    void publish(const DiracConfiguration& image) {
        if (!segment_)
            segment_.emplace(key_);
        SharedLock lock(key_);
        ASSERT_TRUE(lock.lock());
        segment_->publish(image);
        lock.unlock();
    }

    /// A filter that only multiplies channel 0.
    void publishFactor(float factor) {
        const auto image = plainImage();
        for (auto& group : image->groups) {
            group[0].filterEnabled = 1;
            group[0].taps[0] = factor;
        }
        publish(*image);
    }

    Processor& processor() {
        if (!processor_)
            processor_.emplace(key_, reports_.taker());
        return *processor_;
    }

    /// What becomes of channel 0 of a stream of constant samples, half of full scale.
    double factorNow() {
        Samples samples(2 * kBlock, 1 << 30);
        processor().process(samples);
        return samples[2 * kBlock - 2] / static_cast<double>(1 << 30);
    }

    /// Plays until channel 0 comes out times `factor`.
    bool becomes(double factor) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (std::abs(factorNow() - factor) > 1e-6) {
            if (std::chrono::steady_clock::now() > deadline)
                return false;
            std::this_thread::yield();
        }
        return true;
    }

    std::size_t offencesDuring(DiracConfiguration* image);

    const int key_ = unusedKey();
    Reports reports_;
    std::optional<TestSegment> segment_;
    std::optional<Processor> processor_;
};

Samples randomSamples(std::size_t count) {
    std::mt19937 random(5);
    std::uniform_int_distribution<std::int32_t> any(std::numeric_limits<std::int32_t>::min());
    Samples samples(count);
    std::ranges::generate(samples, [&] { return any(random); });
    samples[0] = std::numeric_limits<std::int32_t>::min();
    samples[1] = std::numeric_limits<std::int32_t>::max();
    return samples;
}

TEST_F(ProcessorTest, WithoutASegmentEveryBitPasses) {
    processor().prepare({48000, 2});
    const Samples samples = randomSamples(2000);
    Samples result = samples;
    processor().process(result);
    EXPECT_EQ(result, samples);
    EXPECT_TRUE(reports_.await("nothing is corrected: there is no segment"));
}

TEST_F(ProcessorTest, AtHighRatesBypassOnlyDelays) {
    processor().prepare({96000, 2});
    ASSERT_EQ(processor().latency(), 254U);
    const Samples samples = randomSamples(2000);
    Samples result = samples;
    processor().process(result);
    EXPECT_TRUE(std::equal(result.begin() + 508, result.end(), samples.begin()));
    EXPECT_TRUE(std::all_of(result.begin(), result.begin() + 508,
                            [](std::int32_t sample) { return sample == 0; }));
}

TEST_F(ProcessorTest, BeforeAFormatNothingIsChanged) {
    const Samples samples = randomSamples(100);
    Samples result = samples;
    processor().process(result);
    EXPECT_EQ(result, samples);
}

TEST_F(ProcessorTest, BeginsWithTheImageThatIsThere) {
    publishFactor(0.5F);
    processor().prepare({48000, 2});
    EXPECT_NEAR(factorNow(), 0.5, 1e-6);
    EXPECT_THAT(reports_.texts(), IsEmpty());
}

TEST_F(ProcessorTest, FollowsEachNewImage) {
    publishFactor(0.5F);
    processor().prepare({48000, 2});
    for (const float factor : {0.25F, 0.75F, 1.0F}) {
        publishFactor(factor);
        EXPECT_TRUE(becomes(factor)) << factor;
    }
}

TEST_F(ProcessorTest, FollowsASegmentThatComesAndGoes) {
    processor().prepare({48000, 2});
    publishFactor(0.5F);
    EXPECT_TRUE(becomes(0.5));
    segment_.reset();
    EXPECT_TRUE(becomes(1));
    publishFactor(0.25F);
    EXPECT_TRUE(becomes(0.25));
}

TEST_F(ProcessorTest, AForeignSegmentIsBypassAndReported) {
    publishFactor(0.5F);
    processor().prepare({48000, 2});
    segment_->write({0xabcdef01, 0, {}});
    EXPECT_TRUE(becomes(1));
    EXPECT_TRUE(reports_.await("0xabcdef01"));
}

TEST_F(ProcessorTest, TheLastImageServesWhileTheLockIsHeld) {
    publishFactor(0.5F);
    processor().prepare({48000, 2});
    SharedLock lock(key_);
    ASSERT_TRUE(lock.lock());
    // Half-written, as far as anybody knows.
    segment_->publish(*plainImage());
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
    while (std::chrono::steady_clock::now() < end)
        ASSERT_NEAR(factorNow(), 0.5, 1e-6);
    lock.unlock();
    EXPECT_TRUE(becomes(1));
}

TEST_F(ProcessorTest, EndsWhileTheLockIsHeld) {
    publishFactor(0.5F);
    SharedLock lock(key_);
    ASSERT_TRUE(lock.lock());
    processor().prepare({48000, 2});
    processor_.reset();
    lock.unlock();
}

TEST_F(ProcessorTest, AfterItHasLeftTheSegmentTheLastImageServes) {
    publishFactor(0.5F);
    processor().prepare({48000, 2});
    EXPECT_EQ(segment_->otherAttachments(), 1U);
    processor().stopFollowing();
    EXPECT_EQ(segment_->otherAttachments(), 0U);
    publishFactor(0.25F);
    processor().prepare({44100, 2});
    EXPECT_NEAR(factorNow(), 0.5, 1e-6);
    EXPECT_EQ(segment_->otherAttachments(), 0U);
}

TEST_F(ProcessorTest, ClipsWhatExceedsFullScale) {
    publishFactor(3);
    processor().prepare({48000, 2});
    Samples samples{1 << 30, 0, -(1 << 30), 0};
    processor().process(samples);
    EXPECT_THAT(samples, ElementsAre(std::numeric_limits<std::int32_t>::max(), 0,
                                     std::numeric_limits<std::int32_t>::min(), 0));
}

TEST_F(ProcessorTest, ReportsABrokenChannelOnce) {
    const auto image = filterImage(2, 10, 3);
    image->groups[0][0].biquads[1].a2 = 2;
    publish(*image);
    processor().prepare({48000, 2});
    processor().prepare({48000, 2});
    EXPECT_THAT(reports_.texts(),
                ElementsAre("channel 0 is left uncorrected: biquad 1 is unstable"));
}

TEST_F(ProcessorTest, ANewFormatHasItsOwnLatencyAndFilter) {
    const auto image = plainImage();
    image->groups[0][0].filterEnabled = image->groups[1][0].filterEnabled = 1;
    image->groups[0][0].taps[0] = 0.5F;
    image->groups[1][0].taps[0] = 0.25F;
    publish(*image);
    processor().prepare({48000, 2});
    EXPECT_NEAR(factorNow(), 0.5, 1e-6);
    processor().prepare({44100, 2});
    EXPECT_NEAR(factorNow(), 0.25, 1e-6);
    processor().prepare({176400, 2});
    EXPECT_EQ(processor().latency(), 254U);
    EXPECT_TRUE(becomes(0.25));
}

/// Plays while new images come: each is taken, faded to, and the one before given back.
std::size_t ProcessorTest::offencesDuring(DiracConfiguration* image) {
    std::size_t offences = 0;
    for (int i = 1; i <= 4; ++i) {
        image->groups[0][0].taps[0] = image->groups[1][0].taps[0] = static_cast<float>(i);
        publish(*image);
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
        while (std::chrono::steady_clock::now() < end) {
            Samples samples(10 * kBlock, 1 << 16);
            const RealTimeWatch watch;
            processor().process(samples);
            offences += watch.offences();
        }
    }
    return offences;
}

TEST_F(ProcessorTest, DoesNothingInTheAudioThreadThatMayWait) {
    if (!RealTimeWatch::kWorks)
        GTEST_SKIP() << "the sanitizer watches the same functions";
    for (const unsigned rate : {48000U, 96000U, 176400U}) {
        const auto image = filterImage(10, 1000, 30);
        addBassControl(image.get());
        image->groups[0][0].linearEnabled = image->groups[1][0].linearEnabled = 1;
        image->groups[0][0].delay = image->groups[1][0].delay = 30;
        publish(*image);
        processor().prepare({rate, 10});
        EXPECT_EQ(offencesDuring(image.get()), 0U) << rate;
    }
}

TEST_F(ProcessorTest, TheWatchOfTheAudioThreadSeesWhatItShould) {
    if (!RealTimeWatch::kWorks)
        GTEST_SKIP() << "the sanitizer watches the same functions";
    const RealTimeWatch watch;
    std::mutex mutex;
    { const std::lock_guard guard(mutex); }
    EXPECT_EQ(watch.offences(), 1U);
    void* volatile memory = std::malloc(1);
    std::free(memory);
    EXPECT_EQ(watch.offences(), 3U);
}

TEST_F(ProcessorTest, ImagesMayChangeWhileAnotherThreadPlays) {
    publishFactor(1);
    processor().prepare({48000, 2});
    std::atomic<bool> stop{false};
    std::thread audio([&] {
        while (!stop) {
            const double factor = factorNow();
            EXPECT_TRUE(factor > 0.24 && factor < 1.01) << factor;
        }
    });
    for (int i = 0; i < 30; ++i) {
        publishFactor(i % 2 == 0 ? 0.25F : 1.0F);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    stop = true;
    audio.join();
    EXPECT_TRUE(becomes(1));
}

}  // namespace
}  // namespace dsp
