#include "modules/dirac/StimulusPcm.h"

#include <gmock/gmock.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <random>

using testing::Each;
using testing::ElementsAre;

namespace {

constexpr std::int32_t kLargest = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kSmallest = std::numeric_limits<std::int32_t>::min();

std::vector<std::int32_t> samplesIn(const QByteArray& bytes) {
    std::vector<std::int32_t> samples(static_cast<std::size_t>(bytes.size()) / 4);
    std::memcpy(samples.data(), bytes.data(), samples.size() * 4);
    return samples;
}

QByteArray spread(const std::vector<std::int32_t>& samples, int channel, int channels) {
    return monoToSpecificChannel(reinterpret_cast<const char*>(samples.data()), samples.size() * 4,
                                 channel, channels);
}

std::vector<std::int32_t> amplified(const std::vector<std::int32_t>& samples, float gain) {
    std::vector<std::int32_t> scaled;
    applyGain(samples, gain, scaled);
    return scaled;
}

}  // namespace

TEST(PcmOfTest, ConvertsFullScaleToTheLimitsOfAnInteger) {
    EXPECT_THAT(pcmOf({1.0F, -1.0F, 0.5F, -0.25F, 0.0F}),
                ElementsAre(2147483647, kSmallest, 1073741824, -536870912, 0));
}

TEST(PcmOfTest, ClipsWhatExceedsFullScale) {
    const float infinity = std::numeric_limits<float>::infinity();
    EXPECT_THAT(pcmOf({1.5F, -1.5F, infinity, -infinity}),
                ElementsAre(kLargest, kSmallest, kLargest, kSmallest));
}

TEST(PcmOfTest, StaysBelowTheLimitsInsideFullScale) {
    EXPECT_THAT(pcmOf({std::nextafter(1.0F, 0.0F), std::nextafter(-1.0F, 0.0F)}),
                ElementsAre(2147483520, -2147483520));
}

TEST(PcmOfTest, RoundsHalvesAwayFromZero) {
    constexpr float kStep = 1.0F / 2147483648.0F;
    EXPECT_THAT(pcmOf({0.5F * kStep, -0.5F * kStep, 0.49F * kStep, -0.49F * kStep, 2.5F * kStep}),
                ElementsAre(1, -1, 0, 0, 3));
}

TEST(PcmOfTest, MakesSilenceOfWhatIsNotANumber) {
    EXPECT_THAT(pcmOf({std::numeric_limits<float>::quiet_NaN()}), ElementsAre(0));
}

TEST(MonoToSpecificChannelTest, PutsEverySampleIntoItsFrame) {
    EXPECT_THAT(samplesIn(spread({1, 2, 3}, 1, 3)), ElementsAre(0, 1, 0, 0, 2, 0, 0, 3, 0));
}

TEST(MonoToSpecificChannelTest, LeavesASingleChannelAsItIs) {
    EXPECT_THAT(samplesIn(spread({1, kSmallest, kLargest}, 0, 1)),
                ElementsAre(1, kSmallest, kLargest));
}

TEST(MonoToSpecificChannelTest, GivesNothingForNothing) {
    EXPECT_TRUE(spread({}, 0, 8).isEmpty());
}

TEST(ApplyGainTest, GivesTheFirstFrameOfASpeakerWithHalfTheGain) {
    EXPECT_THAT(samplesIn(spread(amplified({1000, -2000}, 0.5F), 1, 2)),
                ElementsAre(0, 500, 0, -1000));
}

TEST(MonoToSpecificChannelTest, FillsFramesOfAnySize) {
    for (const int channels : {1, 2, 7, 64, 2000, 5000}) {
        std::vector<std::int32_t> samples(100);
        std::iota(samples.begin(), samples.end(), 1);
        const auto frames = samplesIn(spread(samples, channels - 1, channels));
        const auto count = static_cast<std::size_t>(channels);
        ASSERT_EQ(frames.size(), 100 * count);
        for (std::size_t i = 0; i < frames.size(); ++i)
            ASSERT_EQ(frames[i], (i + 1) % count == 0 ? samples[i / count] : 0);
    }
}

TEST(ApplyGainTest, RoundsTiesAwayFromZero) {
    EXPECT_THAT(amplified({1, -1, 3, -3}, 0.5F), ElementsAre(1, -1, 2, -2));
}

TEST(ApplyGainTest, RoundsAsTheLibraryDoes) {
    std::mt19937 random(1);
    std::uniform_int_distribution<std::int32_t> samples(kSmallest, kLargest);
    std::uniform_real_distribution<float> gains(0.0F, 1.0F);
    for (int i = 0; i < 10'000; ++i) {
        const std::int32_t sample = samples(random) >> (i % 32);
        const float gain = gains(random);
        const auto expected = static_cast<std::int32_t>(std::round(double{gain} * sample));
        ASSERT_THAT(amplified({sample}, gain), ElementsAre(expected)) << sample << " * " << gain;
    }
}

TEST(ApplyGainTest, KeepsEverythingAtFullGain) {
    EXPECT_THAT(amplified({kSmallest, kLargest, 7}, 1.0F), ElementsAre(kSmallest, kLargest, 7));
}

TEST(ApplyGainTest, IsSilentWithoutGain) {
    EXPECT_THAT(amplified({kSmallest, kLargest, 7}, 0.0F), Each(0));
}

TEST(PlaybackProgressTest, IsPercentOfOnePassFromMinusOne) {
    // A hundred speakers' worth of 1000 bytes each: one percent is one of them.
    EXPECT_EQ(playbackProgress(1, 0, 1000, 100), -1.0F);
    EXPECT_EQ(playbackProgress(999, 0, 1000, 100), -1.0F);
    EXPECT_EQ(playbackProgress(1000, 0, 1000, 100), 0.0F);
    EXPECT_EQ(playbackProgress(1000, 99, 1000, 100), 99.0F);
}

TEST(PlaybackProgressTest, RoundsOnePercentDownAsWell) {
    // 3 * 110 / 100 is 3: the whole pass comes to 110 of them.
    EXPECT_EQ(playbackProgress(110, 2, 110, 3), 109.0F);
}

TEST(PlaybackProgressTest, CountsOnBeyondOnePass) {
    EXPECT_EQ(playbackProgress(500, 4, 1000, 2), 224.0F);
}

TEST(PlaybackProgressTest, HasAnAnswerForTheShortestSignal) {
    EXPECT_EQ(playbackProgress(4, 0, 4, 1), 3.0F);
    EXPECT_EQ(playbackProgress(0, 0, 0, 0), -1.0F);
}

TEST(PlaybackProgressTest, CountsSignalsLongerThanFourGigabytes) {
    constexpr std::uint64_t kSize = 1ULL << 33;
    EXPECT_EQ(playbackProgress(kSize, 1, kSize, 2), 99.0F);
}
