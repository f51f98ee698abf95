#include "calibrate/measurement/CurveFile.h"
#include "calibrate/report/ResponseText.h"
#include "support/ScratchDirectory.h"

#include <gmock/gmock.h>

#include <cmath>
#include <fstream>
#include <sstream>

namespace calibrate::report {
namespace {

using measurement::ImpulseResponse;

struct Row {
    double frequency;
    double level;
    double phase;
};

std::vector<Row> rowsOf(const std::string& text) {
    std::vector<Row> rows;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("*"))
            continue;
        Row row{};
        std::istringstream(line) >> row.frequency >> row.level >> row.phase;
        rows.push_back(row);
    }
    return rows;
}

ImpulseResponse delayedImpulse(std::size_t delay) {
    ImpulseResponse response{48'000, std::vector<double>(4'800), -0.01};
    response.samples[delay] = 0.5;
    return response;
}

TEST(ResponseTextTest, AnImpulseIsFlatWithoutPhaseAfterItsArrival) {
    const auto rows = rowsOf(responseText(delayedImpulse(1'000), "A"));

    ASSERT_GT(rows.size(), 500U);
    for (const auto& row : rows) {
        EXPECT_NEAR(row.level, -6.021, 0.001);
        // The onset is found to a fraction of a sample.
        EXPECT_NEAR(row.phase, 0, 360 * row.frequency / 48'000);
    }
}

TEST(ResponseTextTest, FrequenciesAscendWithinHearing) {
    const auto rows = rowsOf(responseText(delayedImpulse(0), "A"));

    EXPECT_EQ(rows.front().frequency, 10);
    EXPECT_NEAR(rows.back().frequency, 22'000, 400);
    EXPECT_TRUE(std::ranges::is_sorted(rows, std::less_equal<>(), &Row::frequency));
}

TEST(ResponseTextTest, NothingIsToldBeyondTheNyquistFrequency) {
    const auto rows = rowsOf(responseText({8'000, {1, 0}, 0}, "A"));

    EXPECT_LT(rows.back().frequency, 4'000);
}

TEST(ResponseTextTest, SilenceIsALowLevelAndNoWord) {
    const auto text = responseText({48'000, {0, 0}, 0}, "A");

    EXPECT_EQ(rowsOf(text).front().level, -300);
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("inf")));
}

TEST(ResponseTextTest, HeadersAreCommentsWhateverTheTitleHolds) {
    const auto text = responseText(measurement::FrequencyCurve(), "a\n20 -3\nb");

    EXPECT_THAT(text, testing::StartsWith("* a?20 -3?b\n* Frequency"));
}

TEST(ResponseTextTest, WhatIsWrittenCanBeImported) {
    const ScratchDirectory scratch;
    const auto path = scratch.path() / "target.txt";
    const measurement::FrequencyCurve curve({{20, 3}, {200, 0}, {20'000, -3}});
    std::ofstream(path) << responseText(curve, "Target");

    const auto read = measurement::readCurveFile(path);

    EXPECT_EQ(read.headers.size(), 2U);
    for (const double frequency : {20.0, 63.0, 1'000.0, 16'000.0})
        EXPECT_NEAR(read.curve.level(frequency), curve.level(frequency), 0.01);
}

}  // namespace
}  // namespace calibrate::report
