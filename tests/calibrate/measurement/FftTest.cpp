#include "calibrate/measurement/Fft.h"
#include "calibrate/measurement/MinimumPhaseSpectrum.h"
#include "calibrate/measurement/Signals.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace calibrate::measurement;

TEST(Fft, roundTripChangesNothing) {
    const auto samples = whiteNoise(1'000, 1, 1);
    const auto back = inverseFft(forwardFft(samples, 1'024), 1'024);
    for (std::size_t i = 0; i < samples.size(); ++i)
        ASSERT_NEAR(back[i], samples[i], 1e-12);
}

TEST(Fft, convolutionEqualsTheDirectSum) {
    const std::vector<double> a{1, -2, 3};
    const std::vector<double> b{4, 5};
    const auto product = convolve(a, b);
    const std::vector<double> expected{4, -3, 2, 15};
    ASSERT_EQ(product.size(), 4U);
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_NEAR(product[i], expected[i], 1e-12);
}

TEST(MinimumPhaseSpectrum, findsTheMinimumPhaseFilterOfItsMagnitude) {
    // Zeros inside the unit circle: already minimum-phase.
    const std::vector<double> filter{1, -0.9, 0.5};
    const std::size_t size = 4'096;
    std::vector<double> gains;
    for (const auto& bin : forwardFft(filter, size))
        gains.push_back(20 * std::log10(std::abs(bin)));
    const auto found = inverseFft(minimumPhaseSpectrum(gains), size);
    EXPECT_NEAR(found[0], 1, 1e-9);
    EXPECT_NEAR(found[1], -0.9, 1e-9);
    EXPECT_NEAR(found[2], 0.5, 1e-9);
    EXPECT_NEAR(found[3], 0, 1e-9);
}
