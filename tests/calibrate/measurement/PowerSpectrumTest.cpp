#include "calibrate/measurement/PowerSpectrum.h"

#include <gtest/gtest.h>

using namespace calibrate::measurement;

TEST(PowerSpectrum, impulseHasTheSamePowerEverywhere) {
    const std::vector<double> impulse{2};
    const PowerSpectrum spectrum(impulse, 48'000);
    EXPECT_LT(spectrum.binWidth(), 1);
    EXPECT_NEAR(spectrum.mean(100, 200), 4, 1e-9);
    EXPECT_NEAR(spectrum.meanAround(1'000, 1.0 / 6), 4, 1e-9);
    EXPECT_EQ(spectrum.highest(), 24'000);
}

TEST(PowerSpectrum, bandNarrowerThanABinGivesThatBin) {
    const auto spectrum = PowerSpectrum::ofBins({1, 2, 3, 4, 5}, 8);
    EXPECT_DOUBLE_EQ(spectrum.mean(2, 2), 3);
    EXPECT_DOUBLE_EQ(spectrum.mean(1.5, 3.5), 3.5);
}

TEST(PowerSpectrum, bandsAtTheEndsStayWithinTheSpectrum) {
    const auto spectrum = PowerSpectrum::ofBins({1, 2, 3, 4, 5}, 8);
    EXPECT_DOUBLE_EQ(spectrum.mean(0, 0), 1);
    EXPECT_DOUBLE_EQ(spectrum.mean(4, 9), 5);
    EXPECT_DOUBLE_EQ(spectrum.sum(-1, 100), 15);
}
