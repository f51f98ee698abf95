#include "calibrate/measurement/LogSweep.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

using namespace calibrate::measurement;

TEST(LogSweep, fullBandSweepOfADeviceAt48kHz) {
    const auto sweep = fullBandSweep(48'000);
    EXPECT_EQ(sweep.length, 240'000U);
    EXPECT_EQ(sweep.silence, 24'000U);
    EXPECT_EQ(sweep.endFrequency, 24'000);
    EXPECT_EQ(sweepSamples(sweep).size(), 264'000U);
}

TEST(LogSweep, oddRateEndsAtTheIntegerQuotient) {
    EXPECT_EQ(fullBandSweep(44'101).endFrequency, 22'050);
}

TEST(LogSweep, beginsWithZeroAndEndsFadedToZero) {
    const auto sweep = fullBandSweep(48'000);
    const auto samples = sweepSamples(sweep);
    EXPECT_EQ(samples[0], 0.0F);
    EXPECT_EQ(samples[sweep.length - 1], 0.0F);
    EXPECT_EQ(samples[sweep.length], 0.0F);
}

TEST(LogSweep, unfadedSampleIsTheSineOfThePhase) {
    const LogSweep sweep{10, 300, 24'000, 0, 1, 48'000, 0};
    const auto samples = sweepSamples(sweep);
    const double ratio = std::log(30.0);
    const double scale = 24'000 * 20 * std::numbers::pi / 48'000 / ratio;
    const double phase = scale * (std::exp(1'000 * ratio / 23'999) - 1);
    EXPECT_FLOAT_EQ(samples[1'000], static_cast<float>(std::sin(phase)));
}

TEST(LogSweep, periodsRepeatTheSweepWithItsSilence) {
    const LogSweep sweep{10, 300, 100, 20, 3, 48'000, 0};
    const auto samples = sweepSamples(sweep);
    ASSERT_EQ(samples.size(), 360U);
    EXPECT_EQ(samples[50], samples[170]);
    EXPECT_EQ(samples[50], samples[290]);
    EXPECT_EQ(samples[110], 0.0F);
}

TEST(LogSweep, impossibleSizesMakeNoSweep) {
    EXPECT_TRUE(sweepSamples(LogSweep{10, 300, 1, 0, 1, 48'000, 0}).empty());
    EXPECT_TRUE(sweepSamples(LogSweep{10, 300, 100, 0, 0, 48'000, 0}).empty());
}

TEST(LogSweep, passesAnOctaveInTheTimeOfTheSecondHarmonicsAdvance) {
    const auto sweep = fullBandSweep(48'000);
    EXPECT_NEAR(sweep.timeOf(2'000) - sweep.timeOf(1'000), sweep.harmonicAdvance(2), 1e-12);
    EXPECT_NEAR(sweep.timeOf(24'000), 5, 1e-9);
}

TEST(LogSweep, atAnotherSampleRateItIsTheSameSound) {
    const auto sweep = fullBandSweep(44'100);
    const auto samples = sweepSamples(sweep, 48'000);
    // Two seconds in, the sweep is slow enough to be compared by its formula.
    const double ratio = std::log(sweep.endFrequency / 10);
    const double time = 2.0;
    const double scale = 220'500 * 20 * std::numbers::pi / 44'100 / ratio;
    const double phase = scale * (std::exp(time * 44'100 * ratio / 220'499) - 1);
    EXPECT_NEAR(samples[96'000], std::sin(phase), 1e-4);
}
