#include "calibrate/measurement/Arrival.h"
#include "calibrate/measurement/Signals.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

using namespace calibrate::measurement;

TEST(Arrival, findsTheDirectSound) {
    const auto arrival = findArrival({48'000, smallRoom(8'000, 480, 1, 1), 0});
    EXPECT_NEAR(arrival.time, 0.01, 1.0 / 48'000);
    EXPECT_NEAR(arrival.distance(0.002), 343 * 0.008, 0.02);
    EXPECT_FALSE(arrival.inverted);
}

TEST(Arrival, findsTheDirectSoundBeforeALouderReflection) {
    std::vector<double> samples(8'000);
    samples[480] = 0.5;
    samples[700] = -0.9;
    const auto arrival = findArrival({48'000, samples, 0});
    EXPECT_NEAR(arrival.time, 0.01, 1.0 / 48'000);
}

TEST(Arrival, countsFromTheResponsesStart) {
    const auto arrival = findArrival({48'000, smallRoom(8'000, 480, 1, 1), -0.005});
    EXPECT_NEAR(arrival.time, 0.005, 1.0 / 48'000);
}

TEST(Arrival, seesSwappedWires) {
    EXPECT_TRUE(findArrival({48'000, smallRoom(8'000, 480, -1, 1), 0}).inverted);
}

TEST(Arrival, levelIsThatOfThePower) {
    EXPECT_NEAR(findArrival({48'000, {0, 0, 0.5, 0}, 0}).level, -6.02, 0.01);
}

TEST(Arrival, levelOfAWooferIsThatOfItsBass) {
    std::vector<double> samples(48'000);
    for (std::size_t i = 0; i < 8'000; ++i) {
        const double time = static_cast<double>(i) / 48'000;
        samples[i] = std::sin(2 * std::numbers::pi * 60 * time) * std::exp(-time / 0.03);
    }
    EXPECT_GT(findArrival({48'000, samples, 0}).level, 40);
}

TEST(Arrival, silenceArrivesAtItsStart) {
    const auto arrival = findArrival({48'000, std::vector<double>(100), 0.25});
    EXPECT_EQ(arrival.time, 0.25);
    EXPECT_EQ(arrival.level, -300);
}
