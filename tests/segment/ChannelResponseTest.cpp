#include "segment/ChannelResponse.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>

namespace segment {
namespace {

using std::numbers::pi;

constexpr double kRate = 48000;

DiracChannelFilter enabledFilter() {
    DiracChannelFilter channel;
    channel.filterEnabled = 1;
    return channel;
}

/// A FIR that delays by `samples`.
DiracChannelFilter delayingFilter(std::size_t samples) {
    auto channel = enabledFilter();
    channel.tapCount = static_cast<std::uint32_t>(samples + 1);
    channel.taps[0] = 0;
    channel.taps[samples] = 1;
    return channel;
}

/// Sections only: the FIR is silent.
DiracChannelFilter sections(std::initializer_list<DiracParallelBiquad> biquads) {
    auto channel = enabledFilter();
    channel.taps[0] = 0;
    channel.biquadCount = static_cast<std::uint32_t>(biquads.size());
    std::copy(biquads.begin(), biquads.end(), channel.biquads.begin());
    return channel;
}

TEST(ChannelResponse, DefaultChannelPassesEverythingUnchanged) {
    for (const double frequency : {10.0, 1000.0, 24000.0}) {
        const auto point = channelResponse(DiracChannelFilter{}, kRate, frequency);
        EXPECT_DOUBLE_EQ(point.magnitude, 0);
        EXPECT_DOUBLE_EQ(point.phase, 0);
        EXPECT_DOUBLE_EQ(point.groupDelay, 0);
    }
}

TEST(ChannelResponse, PureDelayIsFlatWithLinearPhase) {
    const auto channel = delayingFilter(12);
    for (const double frequency : {10.0, 997.0, 1900.0}) {
        const auto point = channelResponse(channel, kRate, frequency);
        EXPECT_NEAR(point.magnitude, 0, 1e-9);
        EXPECT_NEAR(point.phase, -360 * frequency * 12 / kRate, 1e-9);
        EXPECT_NEAR(point.groupDelay, 12 / kRate * 1000, 1e-9);
    }
}

TEST(ChannelResponse, DelayDependsOnTheSampleRateOfTheGroup) {
    EXPECT_NEAR(channelResponse(delayingFilter(441), 44100, 100).groupDelay, 10, 1e-9);
    EXPECT_NEAR(channelResponse(delayingFilter(480), 48000, 100).groupDelay, 10, 1e-9);
}

TEST(ChannelResponse, TwoTapAverageHasCosineMagnitude) {
    auto channel = enabledFilter();
    channel.tapCount = 2;
    channel.taps[0] = channel.taps[1] = 0.5F;
    for (const double frequency : {100.0, 8000.0, 20000.0}) {
        const auto point = channelResponse(channel, kRate, frequency);
        EXPECT_NEAR(point.magnitude, 20 * std::log10(std::cos(pi * frequency / kRate)), 1e-9);
        EXPECT_NEAR(point.groupDelay, 0.5 / kRate * 1000, 1e-9);
    }
}

TEST(ChannelResponse, OnePoleFollowsItsClosedForm) {
    constexpr float kPole = 0.9375F;  // exact in single precision
    const auto channel = sections({{-kPole, 0, 1 - kPole, 0}});
    for (const double frequency : {10.0, 500.0, 24000.0}) {
        const double omega = 2 * pi * frequency / kRate;
        const auto point = channelResponse(channel, kRate, frequency);
        const double norm = 1 - 2 * kPole * std::cos(omega) + kPole * kPole;
        EXPECT_NEAR(point.magnitude, 20 * std::log10((1 - kPole) / std::sqrt(norm)), 1e-9);
        EXPECT_NEAR(point.phase,
                    -std::atan2(kPole * std::sin(omega), 1 - kPole * std::cos(omega)) * 180 / pi,
                    1e-9);
        const double delaySamples = kPole * (std::cos(omega) - kPole) / norm;
        EXPECT_NEAR(point.groupDelay, delaySamples / kRate * 1000, 1e-9);
    }
}

TEST(ChannelResponse, ResonatorHasItsClosedFormAtHalfTheSampleRate) {
    // At z = -1: (b0 - b1) / (1 - a1 + a2).
    const auto channel = sections({{0.5F, 0.25F, 2, 1}});
    const auto point = channelResponse(channel, kRate, kRate / 2);
    EXPECT_NEAR(point.magnitude, 20 * std::log10(1.0 / 0.75), 1e-9);
}

TEST(ChannelResponse, SectionsAddToTheFirInParallel) {
    auto channel = sections({{0, 0, 0.25F, 0}, {0, 0, 0.25F, 0}});
    channel.taps[0] = 0.5F;
    EXPECT_NEAR(channelResponse(channel, kRate, 1000).magnitude, 0, 1e-9);
}

TEST(ChannelResponse, LinearStageAddsGainAndDelay) {
    DiracChannelFilter channel;
    channel.linearEnabled = 1;
    channel.gain = -6;
    channel.delay = 2.5;
    const auto point = channelResponse(channel, kRate, 100);
    EXPECT_DOUBLE_EQ(point.magnitude, -6);
    EXPECT_NEAR(point.phase, -90, 1e-9);
    EXPECT_DOUBLE_EQ(point.groupDelay, 2.5);
}

TEST(ChannelResponse, PhaseIsWrapped) {
    const auto half = channelResponse(delayingFilter(1), kRate, 24000);
    EXPECT_NEAR(half.phase, 180, 1e-9);
    const auto point = channelResponse(delayingFilter(100), kRate, 1000);  // 750 degrees
    EXPECT_NEAR(point.phase, -30, 1e-9);
}

TEST(ChannelResponse, DisabledStagesDoNotCount) {
    auto channel = delayingFilter(100);
    channel.filterEnabled = 0;
    channel.gain = -20;
    channel.delay = 5;
    const auto point = channelResponse(channel, kRate, 1000);
    EXPECT_DOUBLE_EQ(point.magnitude, 0);
    EXPECT_DOUBLE_EQ(point.groupDelay, 0);
}

TEST(ChannelResponse, SilenceIsMinusInfinity) {
    const auto channel = sections({});
    const auto point = channelResponse(channel, kRate, 1000);
    EXPECT_EQ(point.magnitude, -std::numeric_limits<double>::infinity());
    EXPECT_EQ(point.groupDelay, 0);
}

TEST(ChannelResponse, CountsBeyondTheRecordAreCut) {
    auto channel = enabledFilter();
    channel.tapCount = 0xffffffff;
    channel.biquadCount = 0xffffffff;
    EXPECT_NEAR(channelResponse(channel, kRate, 1000).magnitude, 0, 1e-9);
}

TEST(ChannelResponse, FirAgreesWithASlowTransform) {
    auto channel = enabledFilter();
    channel.tapCount = 1024;
    for (std::size_t n = 0; n < channel.taps.size(); ++n)
        channel.taps[n] = static_cast<float>(std::sin(0.7 * static_cast<double>(n * n)));
    std::complex<double> sum;
    for (std::size_t n = 0; n < channel.taps.size(); ++n)
        sum += static_cast<double>(channel.taps[n]) *
               std::polar(1.0, -2 * pi * 3217 * static_cast<double>(n) / kRate);
    const auto point = channelResponse(channel, kRate, 3217);
    EXPECT_NEAR(point.magnitude, 20 * std::log10(std::abs(sum)), 1e-6);
    EXPECT_NEAR(point.phase, std::arg(sum) * 180 / pi, 1e-6);
}

TEST(LogSpacedFrequencies, RunFromEndToEndByOneFactor) {
    EXPECT_THAT(logSpacedFrequencies(10, 10000, 4),
                testing::ElementsAre(testing::DoubleEq(10), testing::DoubleNear(100, 1e-9),
                                     testing::DoubleNear(1000, 1e-9), testing::DoubleEq(10000)));
}

}  // namespace
}  // namespace segment
