#include "calibrate/report/Curves.h"
#include "calibrate/report/TestCalibration.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace calibrate::report {
namespace {

using measurement::ImpulseResponse;

constexpr double kRate = 48'000;

/// A sine that decays by 60 dB in `seconds`.
ImpulseResponse decaying(double frequency, double seconds, std::size_t length = 48'000) {
    ImpulseResponse response{kRate, std::vector<double>(length), 0};
    for (std::size_t i = 0; i < length; ++i) {
        const double time = static_cast<double>(i) / kRate;
        response.samples[i] = std::exp(-std::log(1000) * time / seconds) *
                              std::sin(2 * std::numbers::pi * frequency * time);
    }
    return response;
}

double levelAt(const Line& line, double x) {
    const auto found = std::ranges::find_if(line, [&](const Point& point) { return point.x >= x; });
    return found->y;
}

TEST(CurvesTest, ResponsesWithoutSamplesOrNumbersAreNoUse) {
    EXPECT_TRUE(isUsable({kRate, {1, 0}, 0}));
    EXPECT_FALSE(isUsable({kRate, {}, 0}));
    EXPECT_FALSE(isUsable({0, {1}, 0}));
    EXPECT_FALSE(isUsable({kRate, {std::numeric_limits<double>::quiet_NaN()}, 0}));
    EXPECT_FALSE(isUsable({kRate, {std::numeric_limits<double>::infinity()}, 0}));
}

TEST(CurvesTest, TheWaveformIsScaledAndCountsFromTheArrival) {
    const auto line = waveform(roomResponse(0), 0.01, 0.5);

    const auto peak = std::ranges::max_element(line, {}, &Point::y);
    EXPECT_NEAR(peak->x, 0, 1e-9);
    EXPECT_NEAR(peak->y, 100, 0.1);
    EXPECT_NEAR(line.front().x, -2, 0.05);
    EXPECT_NEAR(line.back().x, 10, 0.05);
}

TEST(CurvesTest, AWaveformAtAHighRateKeepsItsExtremes) {
    ImpulseResponse response{1'000'000, std::vector<double>(20'000), 0};
    response.samples[5'001] = 1;
    response.samples[5'002] = -0.5;

    const auto line = waveform(response, 0.005, 1);

    EXPECT_LE(line.size(), 1'200U);
    EXPECT_EQ(std::ranges::max(line, {}, &Point::y).y, 100);
    EXPECT_EQ(std::ranges::min(line, {}, &Point::y).y, -50);
    EXPECT_TRUE(std::ranges::is_sorted(line, {}, &Point::x));
}

TEST(CurvesTest, ASilentWaveformHasNoLine) {
    EXPECT_TRUE(waveform({kRate, {0, 0}, 0}, 0, 0).empty());
}

TEST(CurvesTest, EnergyDecaysAsTheRoomDoes) {
    const auto line = energyTimeCurve(decaying(1'000, 0.5), 0);

    EXPECT_NEAR(levelAt(line, 0), 0, 0.1);
    EXPECT_NEAR(levelAt(line, 50) - levelAt(line, 250), 24, 0.1);
}

TEST(CurvesTest, AResponseThatEndsEarlyHasAShortCurve) {
    const auto line = energyTimeCurve({kRate, {1}, 0}, 0);

    ASSERT_EQ(line.size(), 1U);
    EXPECT_EQ(line.front().y, 0);
}

TEST(CurvesTest, AWaterfallShowsWhereAndHowFastARoomRings) {
    const auto result = waterfall(decaying(50, 1.0), 0);

    const auto& first = result.levels.front();
    const auto ridge = std::ranges::max_element(first) - first.begin();
    EXPECT_NEAR(result.frequencies[static_cast<std::size_t>(ridge)], 50, 1.5);
    // 60 dB a second: 12 dB from 100 to 300 ms.
    const auto at = [&](std::size_t slice) {
        return result.levels[slice][static_cast<std::size_t>(ridge)];
    };
    EXPECT_EQ(result.times[5], 100);
    EXPECT_NEAR(at(5) - at(15), 12, 0.3);
}

TEST(CurvesTest, AWaterfallOfSilenceLiesOnItsFloor) {
    const auto result = waterfall({kRate, std::vector<double>(4'800), 0}, 0);

    for (const auto& row : result.levels)
        EXPECT_THAT(row, testing::Each(kWaterfallFloor));
}

TEST(CurvesTest, AWaterfallOfOneSampleIsFinite) {
    for (const auto& row : waterfall({kRate, {1}, 0}, 0).levels)
        for (const double level : row)
            EXPECT_TRUE(std::isfinite(level));
}

}  // namespace
}  // namespace calibrate::report
