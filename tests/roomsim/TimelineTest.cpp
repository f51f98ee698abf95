#include "roomsim/Timeline.h"

#include <gtest/gtest.h>

namespace roomsim {
namespace {

TEST(Timeline, AFrameOfEveryRateIsAWholeNumberOfFlicks) {
    for (const unsigned int rate : kRates)
        EXPECT_EQ(flicksPerFrame(rate) * rate, kFlicksPerSecond) << rate;
}

TEST(Timeline, AStreamStartsAtTheNextFrameOfItsGrid) {
    const Flicks frame = flicksPerFrame(48000);
    EXPECT_EQ(StreamClock(48000, 0.0, 10 * frame).start(), 10 * frame);
    EXPECT_EQ(StreamClock(48000, 0.0, 10 * frame + 1).start(), 11 * frame);
}

TEST(Timeline, AFrameIsCompleteWhenTheNextBegins) {
    const StreamClock clock(48000, 0.0, 0);
    const Flicks frame = flicksPerFrame(48000);
    EXPECT_EQ(clock.framesAt(-5), 0);
    EXPECT_EQ(clock.framesAt(frame - 1), 0);
    EXPECT_EQ(clock.framesAt(frame), 1);
    EXPECT_EQ(clock.framesAt(kFlicksPerSecond), 48000);
}

TEST(Timeline, ADriftingClockGainsItsPartsPerMillion) {
    const StreamClock fast(48000, 100.0, 0);
    const StreamClock slow(48000, -100.0, 0);
    EXPECT_EQ(fast.framesAt(1000 * kFlicksPerSecond), 48'004'800);
    EXPECT_EQ(slow.framesAt(1000 * kFlicksPerSecond), 47'995'200);
}

TEST(Timeline, CountAndTimeOfADriftingClockAgreeAtEveryFrame) {
    const StreamClock clock(44100, 137.5, 12345);
    for (std::int64_t frame = 1; frame < 100'000; ++frame) {
        ASSERT_EQ(clock.framesAt(clock.timeOf(frame)), frame);
        ASSERT_EQ(clock.framesAt(clock.timeOf(frame) - 1), frame - 1);
    }
}

TEST(Timeline, PacingMultipliesTheMachinesTime) {
    const Pacing pacing{1'000'000, 20.0};
    EXPECT_EQ(pacing.timeAt(1'000'000), 0);
    EXPECT_EQ(pacing.timeAt(1'000'000 + 50'000'000), kFlicksPerSecond);
}

TEST(Timeline, ARoomTimeHasComeAtTheMachinesTimeThatPacingTells) {
    const Pacing pacing{987'654'321, 1.7};
    for (Flicks time = 1; time < 1'000'000'000'000; time = time * 3 + 1)
        EXPECT_GE(pacing.timeAt(pacing.wallAt(time)), time);
}

}  // namespace
}  // namespace roomsim
