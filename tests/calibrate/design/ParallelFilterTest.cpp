#include "calibrate/design/ParallelFilter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>

using namespace calibrate::design;

namespace {

/// A resonance that rings far beyond the taps.
std::vector<double> ringing(double frequency, double seconds) {
    std::vector<double> samples(65'536);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double time = static_cast<double>(i) / 48'000;
        samples[i] =
            std::exp(-time / seconds) * std::cos(2 * std::numbers::pi * frequency * time) * 0.01;
    }
    samples[0] += 1;
    return samples;
}

double errorOf(const ParallelFilter& filter, const std::vector<double>& wanted) {
    const auto got = filter.impulseResponse(wanted.size());
    double error = 0;
    double energy = 0;
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        error += std::pow(got[i] - wanted[i], 2);
        energy += wanted[i] * wanted[i];
    }
    return 10 * std::log10(error / energy);
}

}  // namespace

TEST(ParallelFilter, sectionsGoOnWhereTheTapsEnd) {
    const auto wanted = ringing(47, 0.08);
    const auto withSections = fitParallelFilter(wanted, {48'000, 1'000, 30}, 20);
    const auto tapsOnly = fitParallelFilter(wanted, {48'000, 1'000, 0}, 20);
    EXPECT_LT(errorOf(withSections, wanted), -30);
    EXPECT_GT(errorOf(tapsOnly, wanted), -20);
    EXPECT_EQ(withSections.taps.size(), 1'000U);
    EXPECT_EQ(withSections.sections.size(), 30U);
}

TEST(ParallelFilter, firstTapsAreThoseOfTheResponse) {
    const auto wanted = ringing(47, 0.08);
    const auto got = fitParallelFilter(wanted, {48'000, 1'000, 30}, 20).impulseResponse(1'000);
    for (std::size_t i = 0; i < got.size(); ++i)
        ASSERT_NEAR(got[i], wanted[i], 1e-6);
}

TEST(ParallelFilter, responseIsThatOfItsImpulseResponse) {
    const auto filter = fitParallelFilter(ringing(47, 0.08), {48'000, 200, 8}, 20);
    const auto impulse = filter.impulseResponse(65'536);
    std::complex<double> sum = 0;
    for (std::size_t i = 0; i < impulse.size(); ++i)
        sum += impulse[i] *
               std::polar(1.0, -2 * std::numbers::pi * 130 / 48'000 * static_cast<double>(i));
    EXPECT_NEAR(std::abs(sum - filter.response(130)), 0, 1e-6);
}

TEST(ParallelFilter, singleTapAndSingleSectionWork) {
    const auto filter = fitParallelFilter(ringing(47, 0.08), {48'000, 1, 1}, 20);
    EXPECT_TRUE(filter.isStable());
    EXPECT_EQ(filter.taps.size(), 1U);
}

TEST(ParallelFilter, everyRateIsStable) {
    for (const double rate : {8'000.0, 44'100.0, 48'000.0, 96'000.0, 192'000.0, 768'000.0})
        EXPECT_TRUE(fitParallelFilter(ringing(47, 0.08), {rate, 1'000, 30}, 10).isStable()) << rate;
}

TEST(ParallelFilter, knowsWhatIsUnstable) {
    EXPECT_TRUE((ParallelFilter{48'000, {1}, {{-1.9F, 0.95F, 1, 0}}}).isStable());
    EXPECT_FALSE((ParallelFilter{48'000, {1}, {{-2.0F, 1.0F, 1, 0}}}).isStable());
    EXPECT_FALSE((ParallelFilter{48'000, {1}, {{-1.99F, 0.98F, 1, 0}}}).isStable());
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_FALSE((ParallelFilter{48'000, {nan}, {}}).isStable());
    EXPECT_FALSE((ParallelFilter{48'000, {1}, {{-1.9F, 0.95F, nan, 0}}}).isStable());
}

TEST(ParallelFilter, scaleIsAGain) {
    auto filter = fitParallelFilter(ringing(47, 0.08), {48'000, 200, 8}, 20);
    const auto before = filter.response(60);
    filter.scale(0.5);
    EXPECT_NEAR(std::abs(filter.response(60) / before - 0.5), 0, 1e-5);
}
