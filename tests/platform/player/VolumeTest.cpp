#include "platform/player/Saturation.h"
#include "platform/player/Volume.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <vector>

using platform::gainOf;
using platform::saturated;
using platform::Volume;

namespace {

constexpr auto kLargest = std::numeric_limits<std::int32_t>::max();
constexpr auto kSmallest = std::numeric_limits<std::int32_t>::min();

std::vector<std::int32_t> applied(Volume& volume, std::vector<std::int32_t> samples, double gain) {
    volume.apply(samples, gain);
    return samples;
}

}  // namespace

TEST(SaturationTest, RoundsToTheNearest) {
    EXPECT_EQ(saturated(1.4), 1);
    EXPECT_EQ(saturated(-1.6), -2);
}

TEST(SaturationTest, DoesNotWrap) {
    EXPECT_EQ(saturated(2147483646.9), kLargest);
    EXPECT_EQ(saturated(2147483647.6), kLargest);
    EXPECT_EQ(saturated(1e300), kLargest);
    EXPECT_EQ(saturated(-2147483648.0), kSmallest);
    EXPECT_EQ(saturated(-2147483648.6), kSmallest);
    EXPECT_EQ(saturated(-INFINITY), kSmallest);
    EXPECT_EQ(saturated(NAN), 0);
}

TEST(GainTest, IsTheFactorOfTheDecibels) {
    EXPECT_EQ(gainOf(0), 1.0);
    EXPECT_DOUBLE_EQ(gainOf(-20), 0.1);
    EXPECT_EQ(gainOf(-INFINITY), 0.0);
}

TEST(GainTest, NothingIsLouderThanFull) {
    EXPECT_EQ(gainOf(6), 1.0);
}

TEST(VolumeTest, AtFullVolumeSamplesStayBitByBit) {
    Volume volume({48000, 1}, 1.0);
    const std::vector<std::int32_t> samples{kSmallest, -1, 0, 1, 123'456'789, kLargest};
    EXPECT_EQ(applied(volume, samples, 1.0), samples);
}

TEST(VolumeTest, TheFirstVolumeIsThereAtOnce) {
    Volume volume({48000, 2}, 0.5);
    EXPECT_THAT(applied(volume, {100, -200, kLargest, kSmallest}, 0.5),
                testing::ElementsAre(50, -100, 1 << 30, -(1 << 30)));
}

TEST(VolumeTest, AChangeTakesTenMillisecondsInSmallSteps) {
    Volume volume({48000, 2}, 1.0);
    const auto samples = applied(volume, std::vector<std::int32_t>(2 * 600, 1'000'000), 0.0);
    for (std::size_t frame = 0; frame < 600; ++frame) {
        ASSERT_EQ(samples[2 * frame], samples[2 * frame + 1]);
        if (frame > 0) {
            ASSERT_LE(samples[2 * frame], samples[2 * (frame - 1)]);
            ASSERT_GE(samples[2 * frame], samples[2 * (frame - 1)] - 2084);
        }
    }
    EXPECT_GT(samples[2 * 478], 0);
    EXPECT_EQ(samples[2 * 479], 0);
    EXPECT_EQ(samples[2 * 599], 0);
}

TEST(VolumeTest, AChangeGoesOnAcrossBlocksAndEndsExactly) {
    Volume volume({48000, 1}, 0.25);
    for (int i = 0; i < 5; ++i)
        applied(volume, std::vector<std::int32_t>(96), 1.0);
    EXPECT_EQ(applied(volume, {kLargest, 3}, 1.0), (std::vector<std::int32_t>{kLargest, 3}));
}

TEST(VolumeTest, AChangeOfMindBeginsWhereTheVolumeIs) {
    Volume volume({48000, 1}, 1.0);
    const auto down = applied(volume, std::vector<std::int32_t>(240, 1'000'000), 0.0);
    const auto up = applied(volume, std::vector<std::int32_t>(480, 1'000'000), 1.0);
    EXPECT_NEAR(down.back(), 500'000, 2);
    EXPECT_NEAR(up.front(), 501'042, 2);
    EXPECT_EQ(up.back(), 1'000'000);
}
