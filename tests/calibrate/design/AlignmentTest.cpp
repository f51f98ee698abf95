#include "calibrate/design/Alignment.h"

#include <gtest/gtest.h>

using namespace calibrate::design;

TEST(Alignment, waitsForTheLatestAndQuietest) {
    std::vector<std::string> warnings;
    const auto alignments =
        align({{0.010, false, -20}, {0.012, false, -23}}, {"left", "right"}, {}, warnings);
    EXPECT_NEAR(alignments[0].delay, 0.002, 1e-12);
    EXPECT_NEAR(alignments[0].gain, -3, 1e-12);
    EXPECT_EQ(alignments[1].delay, 0);
    EXPECT_EQ(alignments[1].gain, 0);
    EXPECT_TRUE(warnings.empty());
}

TEST(Alignment, whatTheDeviceDoesNotHoldIsTold) {
    std::vector<std::string> warnings;
    const auto alignments =
        align({{0.010, false, 0}, {0.030, false, -15}}, {"left", "right"}, {0.003, 10}, warnings);
    EXPECT_EQ(alignments[0].delay, 0.003);
    EXPECT_EQ(alignments[0].gain, -10);
    ASSERT_EQ(warnings.size(), 2U);
    EXPECT_EQ(warnings[0], "left would need a delay of 20.00 ms; the device takes 3.00 ms");
    EXPECT_EQ(warnings[1],
              "left is 15.0 dB louder than the quietest speaker; the device takes back 10.0 dB");
}
