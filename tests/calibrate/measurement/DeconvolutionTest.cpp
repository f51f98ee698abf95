#include "calibrate/measurement/Deconvolution.h"
#include "calibrate/measurement/Signals.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

using namespace calibrate::measurement;

namespace {

const LogSweep kSweep = fullBandSweep(48'000);

}  // namespace

TEST(Deconvolution, findsTheRoomWithin60DecibelsThroughNoise60DecibelsDown) {
    const auto room = smallRoom(12'000, 900, 0.3, 1);
    const auto result = deconvolve(heard(sweepSamples(kSweep), room, -60, 2), 48'000, kSweep);
    EXPECT_LT(errorBetween({48'000, room, 0}, result.response, 20, 20'000), -60);
    EXPECT_GT(result.peakToNoise, 60);
}

TEST(Deconvolution, findsTheRoomInARecordingThatStartsLateInSilence) {
    auto room = smallRoom(12'000, 900, 0.3, 1);
    room.insert(room.begin(), 30'000, 0.0);
    const auto result = deconvolve(heard(sweepSamples(kSweep), room, -60, 2), 48'000, kSweep);
    EXPECT_LT(errorBetween({48'000, room, 0}, result.response, 20, 20'000), -60);
}

TEST(Deconvolution, beginsTheResponseBeforeTheDirectSound) {
    const auto room = smallRoom(12'000, 900, 0.3, 1);
    const auto result = deconvolve(heard(sweepSamples(kSweep), room, -60, 2), 48'000, kSweep);
    EXPECT_NEAR(result.response.start, 900.0 / 48'000 - 0.1, 1.0 / 48'000);
    EXPECT_EQ(result.response.samples.size(), 48'000U);
}

TEST(Deconvolution, keepsHarmonicDistortionApart) {
    auto played = sweepSamples(kSweep);
    // The second harmonic, 34 dB down, as long as it lies below the Nyquist frequency.
    const auto end = static_cast<std::size_t>(kSweep.timeOf(11'000) * 48'000);
    for (std::size_t i = 0; i < end; ++i)
        played[i] += 0.02F * (2 * played[i] * played[i] - 1);
    const std::vector<double> direct{1};
    const auto result = deconvolve(heard(played, direct, -80, 3), 48'000, kSweep);
    EXPECT_NEAR(result.distortion[0].level, -34, 1.5);
    EXPECT_LT(result.distortion[1].level, -60);
    EXPECT_LT(errorBetween({48'000, direct, 0}, result.response, 20, 20'000), -60);
}

TEST(Deconvolution, shortLowSweepFindsTheBass) {
    const LogSweep sweep{10, 300, 24'000, 0, 1, 48'000, 0};
    const auto room = smallRoom(6'000, 400, 0.5, 4);
    const auto result =
        deconvolve(heard(sweepSamples(sweep), room, -80, 5), 48'000, sweep, {0.08, 1.0});
    EXPECT_LT(errorBetween({48'000, room, 0}, result.response, 30, 250), -40);
}

TEST(Deconvolution, findsASubwooferThatReachesBelowTheSweepsRange) {
    // Resonances that swell within some periods, one of them at the sweep's very start.
    std::vector<double> woofer(24'000);
    for (std::size_t i = 900; i < woofer.size(); ++i) {
        const double time = static_cast<double>(i - 900) / 48'000;
        for (const double frequency : {11.0, 30.0, 70.0}) {
            const double angle = 2 * std::numbers::pi * frequency * time;
            woofer[i] += angle * std::exp(-angle / 4) * std::sin(angle) * (frequency - 10) / 60;
        }
    }
    const auto result = deconvolve(heard(sweepSamples(kSweep), woofer, -60, 7), 48'000, kSweep);
    EXPECT_LT(errorBetween({48'000, woofer, 0}, result.response, 20, 20'000), -60);
}

TEST(Deconvolution, anOffsetOfTheMicrophoneIsNoBass) {
    const auto room = smallRoom(12'000, 900, 0.3, 1);
    auto recording = heard(sweepSamples(kSweep), room, -60, 2);
    for (double& sample : recording)
        sample += 0.02;
    const auto result = deconvolve(recording, 48'000, kSweep);
    EXPECT_LT(errorBetween({48'000, room, 0}, result.response, 20, 20'000), -60);
}

TEST(Deconvolution, noiseHasNoPeak) {
    const auto result = deconvolve(whiteNoise(300'000, 0.1, 6), 48'000, kSweep);
    EXPECT_LT(result.peakToNoise, 25);
}
