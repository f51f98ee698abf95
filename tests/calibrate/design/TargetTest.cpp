#include "calibrate/Errors.h"
#include "calibrate/design/Target.h"

#include <gtest/gtest.h>

using calibrate::design::readTarget;

TEST(Target, flatIsFlat) {
    EXPECT_EQ(readTarget("flat").level(50), 0);
}

TEST(Target, houseHasMoreBass) {
    EXPECT_GT(readTarget("house").level(40), readTarget("house").level(500));
    EXPECT_LT(readTarget("house").level(15'000), 0);
}

TEST(Target, missingFileIsRefused) {
    EXPECT_THROW(readTarget("nonexistent.txt"), calibrate::BadInput);
}
