#include "calibrate/measurement/Noise.h"
#include "calibrate/measurement/Signals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using namespace calibrate::measurement;

TEST(Noise, levelIsThatOfTheRms) {
    EXPECT_NEAR(levelOf(std::vector<double>(100, 0.1)), -20, 1e-9);
    EXPECT_EQ(levelOf({}), -300);
}

TEST(Noise, signalToNoiseFallsByTheNoise) {
    const auto sweep = fullBandSweep(48'000);
    const std::vector<double> direct{1};
    const auto recording = heard(sweepSamples(sweep), direct, -200, 1);
    const auto quiet = whiteNoise(48'000, 1e-4, 2);
    const auto loud = whiteNoise(48'000, 1e-3, 2);
    const auto above = signalToNoise(recording, quiet, 48'000, sweep);
    const auto below = signalToNoise(recording, loud, 48'000, sweep);
    ASSERT_EQ(above.size(), 10U);
    for (std::size_t i = 0; i < above.size(); ++i)
        EXPECT_NEAR(above[i].ratio - below[i].ratio, 20, 0.1);
    // In the octave around 1 kHz: a sine of power 0.5 over 707 Hz of 24 kHz of noise.
    const double expected = 10 * std::log10(0.5 / (1e-8 * 707.1 / 24'000));
    EXPECT_NEAR(above[5].ratio, expected, 0.7);
}

TEST(Noise, withoutSilenceThereIsNoRatio) {
    const auto sweep = fullBandSweep(48'000);
    EXPECT_TRUE(signalToNoise(whiteNoise(48'000, 1, 1), {}, 48'000, sweep).empty());
}

TEST(Noise, clippedWavesAreCounted) {
    auto samples = whiteNoise(48'000, 0.3, 3);
    for (double& sample : samples)
        sample = std::clamp(sample, -2.0, 2.0);
    EXPECT_EQ(clippedSamples(samples), 0U);
    std::fill_n(samples.begin() + 100, 5, 2.5);
    std::fill_n(samples.begin() + 200, 2, 2.5);
    EXPECT_EQ(clippedSamples(samples), 5U);
}

TEST(Noise, softSignalIsNotClipped) {
    EXPECT_EQ(clippedSamples(std::vector<double>(100, 0.01)), 0U);
}
