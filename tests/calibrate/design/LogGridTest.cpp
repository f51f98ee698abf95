#include "calibrate/design/LogGrid.h"

#include <gtest/gtest.h>

using calibrate::design::LogGrid;

TEST(LogGrid, stepsByEqualRatios) {
    const LogGrid grid(100, 400, 2);
    ASSERT_EQ(grid.size(), 5U);
    EXPECT_DOUBLE_EQ(grid.frequencies()[2], 200);
    EXPECT_DOUBLE_EQ(grid.frequencies()[4], 400);
}

TEST(LogGrid, interpolatesOnTheLogarithmicAxisAndIsLevelBeyondItsEnds) {
    const LogGrid grid(100, 400, 1);
    const std::vector<double> values{0, 2, 6};
    EXPECT_NEAR(grid.interpolate(values, 141.42136), 1, 1e-6);
    EXPECT_EQ(grid.interpolate(values, 10), 0);
    EXPECT_EQ(grid.interpolate(values, 10'000), 6);
}

TEST(LogGrid, smoothingKeepsWhatIsLevel) {
    const LogGrid grid(20, 20'000, 96);
    for (const double power : grid.smooth(std::vector<double>(grid.size(), 3), 1.0 / 6))
        ASSERT_NEAR(power, 3, 1e-12);
}

TEST(LogGrid, smoothingSpreadsAPeakOverItsBand) {
    const LogGrid grid(20, 20'000, 96);
    std::vector<double> powers(grid.size());
    powers[400] = 17;
    const auto smoothed = grid.smooth(powers, 1.0 / 6);
    EXPECT_EQ(smoothed[391], 0);
    EXPECT_NEAR(smoothed[400], 1, 0.01);
    EXPECT_EQ(smoothed[409], 0);
}
