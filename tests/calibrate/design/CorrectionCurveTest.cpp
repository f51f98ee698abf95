#include "calibrate/design/CorrectionCurve.h"
#include "calibrate/measurement/Signals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

using namespace calibrate::design;
using calibrate::measurement::FrequencyCurve;
using calibrate::measurement::ImpulseResponse;

namespace {

ImpulseResponse impulse() {
    std::vector<double> samples(24'000);
    samples[480] = 0.5;
    return {48'000, samples, 0};
}

/// A room whose notches are deeper than any boost.
ImpulseResponse comb() {
    auto response = impulse();
    response.samples[600] = 0.49;
    return response;
}

double pinkGain(const CorrectionCurve& curve) {
    double sum = 0;
    for (const double gain : curve.gains)
        sum += std::pow(10.0, gain / 10);
    return 10 * std::log10(sum / static_cast<double>(curve.gains.size()));
}

}  // namespace

TEST(CorrectionCurve, perfectSpeakerIsLeftAlone) {
    for (const double gain : correctionCurve({impulse()}, {}).gains)
        ASSERT_NEAR(gain, 0, 0.1);
}

TEST(CorrectionCurve, followsTheTarget) {
    CorrectionOptions options;
    options.target = FrequencyCurve({{200, 4}, {400, 0}});
    const auto curve = correctionCurve({impulse()}, options);
    EXPECT_NEAR(curve.gain(100, 48'000) - curve.gain(1'000, 48'000), 4, 0.1);
    EXPECT_NEAR(pinkGain(curve), 0, 0.01);
}

TEST(CorrectionCurve, boostIsLimited) {
    for (const double boost : {3.0, 6.0, 12.0}) {
        CorrectionOptions options;
        options.limits.maxBoost = boost;
        const auto curve = correctionCurve({comb()}, options);
        EXPECT_LE(std::ranges::max(curve.gains), boost + 0.01);
        EXPECT_LE(curve.boost(), boost + 0.01);
        EXPECT_NEAR(pinkGain(curve), 0, 0.05);
    }
}

TEST(CorrectionCurve, withoutAnyBoostOnlyPeaksAreCut) {
    auto peak = impulse();
    for (std::size_t i = 0; i < 20'000; ++i)
        peak.samples[480 + i] += 0.005 * std::exp(-static_cast<double>(i) / 2'000) *
                                 std::cos(2 * M_PI * 100 / 48'000 * static_cast<double>(i));
    CorrectionOptions options;
    options.limits.maxBoost = 0;
    const auto curve = correctionCurve({peak}, options);
    EXPECT_LT(curve.gain(100, 48'000), curve.gain(1'000, 48'000) - 10);
    EXPECT_LT(curve.boost(), 1);
}

TEST(CorrectionCurve, cutIsLimited) {
    CorrectionOptions options;
    options.limits.maxCut = 2;
    EXPECT_GE(std::ranges::min(correctionCurve({comb()}, options).gains), -2);
}

TEST(CorrectionCurve, fadesOutBelowTheRange) {
    CorrectionOptions options;
    options.target = FrequencyCurve({{200, 6}, {400, 0}});
    options.limits.lowest = 40;
    const auto curve = correctionCurve({impulse()}, options);
    EXPECT_GT(curve.gain(40, 48'000), 3);
    EXPECT_EQ(curve.gain(20, 48'000), 0);
    EXPECT_EQ(curve.gain(0, 48'000), 0);
}

TEST(CorrectionCurve, becomesALowPassBeyondHearing) {
    const auto curve = correctionCurve({impulse()}, {});
    EXPECT_NEAR(curve.gain(18'000, 48'000), 0, 0.1);
    EXPECT_LT(curve.gain(21'500, 48'000), -20);
    EXPECT_LT(curve.gain(22'000, 44'100), -20);
}

TEST(CorrectionCurve, narrowRangeFadesOutAtBothEnds) {
    CorrectionOptions options;
    options.limits.highest = 160;
    const auto curve = correctionCurve({comb()}, options);
    EXPECT_NEAR(curve.gain(1'000, 48'000), 0, 1e-9);
}

TEST(CorrectionCurve, positionsCountAlikeHoweverLoud) {
    auto loud = comb();
    for (double& sample : loud.samples)
        sample *= 100;
    const auto one = correctionCurve({comb(), impulse()}, {});
    const auto two = correctionCurve({loud, impulse()}, {});
    for (std::size_t i = 0; i < one.gains.size(); ++i)
        ASSERT_NEAR(one.gains[i], two.gains[i], 1e-6);
}

TEST(CorrectionCurve, coarserCurveHasLessDetail) {
    const auto curve = correctionCurve({comb()}, {});
    const auto smooth = coarser(curve, 2);
    const auto spread = [](const CorrectionCurve& c) {
        return std::ranges::max(c.gains) - std::ranges::min(c.gains);
    };
    EXPECT_LT(spread(smooth), 0.7 * spread(curve));
}
