#include "calibrate/report/Chart.h"
#include "calibrate/report/WellFormed.h"

#include <gmock/gmock.h>

#include <limits>

namespace calibrate::report {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

const Axis kX = linearAxis(0, 10, 5, "x");
const Axis kY = linearAxis(0, 10, 5, "y");

std::string path(const Line& line) {
    return pathData(line, kX, kY);
}

Chart chartOf(const Line& line) {
    return {"Title", "Words", kX, kY, {{"name", "before", line}}, ""};
}

TEST(ChartTest, ALineIsDrawnInRelativeSteps) {
    EXPECT_EQ(path({{0, 0}, {5, 10}, {10, 5}}), "M0 1000l1000-1000 1000 500");
}

TEST(ChartTest, NoPointsDrawNothing) {
    EXPECT_EQ(path({}), "");
}

TEST(ChartTest, OnePointIsADot) {
    EXPECT_EQ(path({{5, 5}}), "M1000 500h0");
}

TEST(ChartTest, WhatIsNoNumberLeavesAGap) {
    EXPECT_EQ(path({{0, 0}, {1, 0}, {2, kNan}, {3, 0}, {4, 0}}), "M0 1000l200 0M600 1000l200 0");
}

TEST(ChartTest, NothingButGapsDrawsNothing) {
    EXPECT_EQ(path({{kNan, 1}, {1, kNan}}), "");
}

TEST(ChartTest, ValuesFarOutsideStayNearThePlot) {
    EXPECT_EQ(path({{0, -1e300}, {10, kInfinity}}), "M0 2000l2000-3000");
}

TEST(ChartTest, ALogarithmicAxisHasEqualRatiosAtEqualSteps) {
    EXPECT_DOUBLE_EQ(audioAxis().position(20), 0);
    EXPECT_NEAR(audioAxis().position(632.4555), 0.5, 1e-6);
    EXPECT_DOUBLE_EQ(audioAxis().position(20'000), 1);
}

TEST(ChartTest, ZeroHertzIsLeftOfALogarithmicAxis) {
    EXPECT_EQ(audioAxis().position(0), -1);
    EXPECT_TRUE(std::isnan(audioAxis().position(-5)));
}

TEST(ChartTest, AFigureTellsTitleDescriptionAndUnits) {
    const auto markup = figure(chartOf({{1, 1}, {2, 2}}), "a").string();

    EXPECT_EQ(whatIsMalformed(markup), "");
    EXPECT_THAT(markup, HasSubstr("<title id=\"at\">Title</title><desc id=\"ad\">Words</desc>"));
    EXPECT_THAT(markup, HasSubstr("aria-labelledby=\"at ad\""));
    EXPECT_THAT(markup, HasSubstr(">y</p>"));
    EXPECT_THAT(markup, HasSubstr("</svg>name</li>"));
}

TEST(ChartTest, AFigureWithoutDataSaysSo) {
    for (const Line& line : {Line{}, Line{{kNan, kNan}}}) {
        const auto markup = figure(chartOf(line), "a").string();
        EXPECT_THAT(markup, HasSubstr("Nothing to show."));
        EXPECT_THAT(markup, Not(HasSubstr("<svg")));
    }
}

TEST(ChartTest, LevelsHaveASign) {
    const auto axis = levelAxis(-5, 5, 5, "dB");

    EXPECT_EQ(axis.ticks[0].label, "−5");
    EXPECT_EQ(axis.ticks[1].label, "0");
    EXPECT_EQ(axis.ticks[2].label, "+5");
}

TEST(ChartTest, AWaterfallOfBrokenNumbersIsDrawnAtItsFloor) {
    const Waterfall broken{{0, 20}, {20, 300}, {{kNan, kNan}, {-kInfinity, kNan}}};

    const auto markup = waterfallFigure(broken, "T", "before", "w").string();

    EXPECT_EQ(whatIsMalformed(markup), "");
    const auto paths = markup.substr(markup.find("<path"));
    EXPECT_THAT(paths, Not(HasSubstr("nan")));
    EXPECT_THAT(paths, Not(HasSubstr("inf")));
}

}  // namespace
}  // namespace calibrate::report
