#include "calibrate/report/DecayTimes.h"

#include <gmock/gmock.h>

#include <cmath>
#include <numbers>

namespace calibrate::report {
namespace {

using measurement::ImpulseResponse;

constexpr double kRate = 48'000;
constexpr double kArrival = 0.02;  // s

/// A mode of a room in each band, all of which decay by 60 dB in `time` (s).
ImpulseResponse decaying(double time, double length = 2) {
    ImpulseResponse response{kRate, std::vector<double>(static_cast<std::size_t>(length * kRate)),
                             -0.1};
    const auto onset = static_cast<std::size_t>((kArrival + 0.1) * kRate);
    for (int band = -16; band <= -6; ++band) {
        const double frequency = 1'000 * std::pow(10.0, band / 10.0);
        for (std::size_t i = onset; i < response.samples.size(); ++i) {
            const double t = static_cast<double>(i - onset) / kRate;
            response.samples[i] +=
                std::pow(10.0, -3 * t / time) * std::sin(2 * std::numbers::pi * frequency * t);
        }
    }
    return response;
}

/// Fades the response out from `at` (s after the direct sound) to 1.4 times that, as a measurement
/// does where noise begins.
void fadeOut(ImpulseResponse& response, double at) {
    const double onset = (kArrival - response.start) * kRate;
    for (std::size_t i = 0; i < response.samples.size(); ++i) {
        const double t = (static_cast<double>(i) - onset) / kRate;
        const double part = std::clamp((t - at) / (0.4 * at), 0.0, 1.0);
        response.samples[i] *= 0.5 + 0.5 * std::cos(std::numbers::pi * part);
    }
}

TEST(DecayTimesTest, BandsAreThirdsOfAnOctaveOfTheBass) {
    const auto times = decayTimes(decaying(1), kArrival);

    std::vector<double> frequencies;
    for (const auto& band : times)
        frequencies.push_back(std::round(10 * band.frequency) / 10);
    EXPECT_THAT(frequencies,
                testing::ElementsAre(25, 31.5, 40, 50, 63, 80, 100, 125, 160, 200, 250));
}

TEST(DecayTimesTest, ADecayIsFoundInEveryBand) {
    for (const double time : {0.8, 1.2}) {
        for (const auto& band : decayTimes(decaying(time), kArrival)) {
            ASSERT_TRUE(band.time) << band.frequency;
            EXPECT_NEAR(*band.time, time, 0.05 * time) << band.frequency;
            EXPECT_EQ(band.range, 30);
            EXPECT_TRUE(band.isCertain()) << band.frequency << ' ' << band.nonlinearity;
        }
    }
}

TEST(DecayTimesTest, WithMoreNoiseLessOfTheDecayCounts) {
    auto response = decaying(1);
    fadeOut(response, 0.67);  // 40 dB below the beginning

    for (const auto& band : decayTimes(response, kArrival)) {
        ASSERT_TRUE(band.time) << band.frequency;
        EXPECT_NEAR(*band.time, 1, 0.08) << band.frequency;
        EXPECT_EQ(band.range, 20) << band.frequency;
    }
}

TEST(DecayTimesTest, WhatDrownsInNoiseIsNotMeasurable) {
    auto response = decaying(1);
    fadeOut(response, 0.4);  // 24 dB below the beginning

    for (const auto& band : decayTimes(response, kArrival)) {
        EXPECT_FALSE(band.time) << band.frequency;
        EXPECT_EQ(band.range, 0);
    }
}

TEST(DecayTimesTest, ADecayOfTwoSlopesIsUncertainAtBest) {
    auto response = decaying(0.5, 4);
    const auto slow = decaying(4, 4);
    for (std::size_t i = 0; i < slow.samples.size(); ++i)
        response.samples[i] += 0.02 * slow.samples[i];

    for (const auto& band : decayTimes(response, kArrival)) {
        if (band.frequency < 60)  // the filter hides the first slope
            continue;
        EXPECT_FALSE(band.time && band.isCertain()) << band.frequency << " Hz: " << *band.time;
    }
}

TEST(DecayTimesTest, ADecayShorterThanThatOfTheFilterIsNotMeasurable) {
    for (const auto& band : decayTimes(decaying(0.2), kArrival)) {
        const bool isMeasurable = 0.2316 * band.frequency * 0.2 > 4;
        EXPECT_EQ(band.time.has_value(), isMeasurable) << band.frequency;
        EXPECT_NEAR(band.time.value_or(0.2), 0.2, 0.02) << band.frequency;
    }
}

TEST(DecayTimesTest, NothingHasNoDecay) {
    for (const auto& samples : {std::vector<double>{1}, std::vector<double>(48'000)})
        for (const auto& band : decayTimes({kRate, samples, 0}, 0))
            EXPECT_FALSE(band.time);
    EXPECT_FALSE(decayTimes({kRate, std::vector<double>(48'000, 1), 0}, 5).front().time);
}

}  // namespace
}  // namespace calibrate::report
