#include "calibrate/Errors.h"
#include "calibrate/design/SpeakerDesign.h"
#include "calibrate/measurement/Signals.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

using namespace calibrate;
using namespace calibrate::design;
using testing::HasSubstr;

namespace {

measurement::ImpulseResponse room() {
    auto response = measurement::ImpulseResponse{48'000, smallRoom(24'000, 480, 0.5, 7), 0};
    response.samples[800] = -0.15;
    return response;
}

std::string refusal(const Limits& limits) {
    try {
        checkLimits(limits);
    } catch (const BadInput& error) {
        return error.what();
    }
    return "";
}

}  // namespace

TEST(SpeakerDesign, filterFollowsTheCurve) {
    const auto curve = correctionCurve({room()}, {});
    const auto filter = realise(curve, {48'000, 1'000, 30}, {});
    for (double frequency = 30; frequency < 16'000; frequency *= 1.01) {
        const double gain = 20 * std::log10(std::abs(filter.response(frequency)));
        ASSERT_NEAR(gain, curve.gain(frequency, 48'000), 1.5) << frequency;
    }
}

TEST(SpeakerDesign, everyRateGetsTheSameResponse) {
    const auto curve = correctionCurve({room()}, {});
    const auto at48 = realise(curve, {48'000, 1'000, 30}, {});
    const auto at44 = realise(curve, {44'100, 1'000, 30}, {});
    for (double frequency = 30; frequency < 16'000; frequency *= 1.01)
        ASSERT_NEAR(20 * std::log10(std::abs(at48.response(frequency) / at44.response(frequency))),
                    0, 1.0)
            << frequency;
}

TEST(SpeakerDesign, boostStaysWithinTheLimitInEveryCapacity) {
    const auto curve = correctionCurve({room()}, {});
    for (const std::size_t taps : {1UL, 10UL, 1'000UL})
        for (const std::size_t sections : {0UL, 1UL, 30UL}) {
            const auto filter = realise(curve, {48'000, taps, sections}, {});
            EXPECT_LE(boost(filter, curve.lowest, curve.highest), 6.01)
                << taps << " taps, " << sections << " sections";
            EXPECT_TRUE(filter.isStable());
            EXPECT_LE(filter.taps.size(), taps);
            EXPECT_LE(filter.sections.size(), sections);
        }
}

TEST(SpeakerDesign, anyBoostIsKept) {
    for (const double most : {0.5, 2.0, 6.0, 12.0}) {
        CorrectionOptions options;
        options.limits.maxBoost = most;
        const auto curve = correctionCurve({room()}, options);
        const auto filter = realise(curve, {48'000, 1'000, 30}, options.limits);
        EXPECT_LE(boost(filter, curve.lowest, curve.highest), std::max(most, curve.boost()) + 0.01);
    }
}

TEST(SpeakerDesign, boostCountsFromTheGainForPinkNoise) {
    EXPECT_NEAR(boost({48'000, {0.25F}, {}}, 20, 18'000), 0, 1e-6);
    // A comb: twice the amplitude at its peaks, on the mean over all frequencies twice the power.
    ParallelFilter comb{48'000, std::vector<float>(481), {}};
    comb.taps.front() = comb.taps.back() = 1;
    EXPECT_NEAR(boost(comb, 200, 18'000), 3.01, 0.1);
}

TEST(SpeakerDesign, groupDelayStaysWithinTheLimit) {
    const auto curve = correctionCurve({room()}, {});
    for (const double most : {0.001, 0.005, 0.02, 0.15}) {
        Limits limits;
        limits.maxGroupDelay = most;
        const auto filter = realise(curve, {48'000, 1'000, 30}, limits);
        EXPECT_LE(largestGroupDelay(filter, limits.lowest, limits.highest), most);
    }
}

TEST(SpeakerDesign, groupDelayOfADelayIsTheDelay) {
    ParallelFilter filter{48'000, std::vector<float>(481), {}};
    filter.taps.back() = 1;
    EXPECT_NEAR(largestGroupDelay(filter, 20, 18'000), 0.01, 1e-9);
}

TEST(SpeakerDesign, capacityOfNothingIsRefusedWithAWord) {
    EXPECT_THROW(checkCapacity({48'000, 0, 30}), BadInput);
    try {
        checkCapacity({44'100, 0, 0});
    } catch (const BadInput& error) {
        EXPECT_THAT(error.what(), HasSubstr("no filter taps at 44.1 kHz (capacity 0)"));
    }
    EXPECT_NO_THROW(checkCapacity({48'000, 1, 0}));
}

TEST(SpeakerDesign, limitsThatContradictThemselvesAreRefused) {
    EXPECT_EQ(refusal({}), "");
    EXPECT_THAT(refusal({.lowest = 500, .highest = 400}), HasSubstr("cannot be corrected"));
    EXPECT_THAT(refusal({.lowest = std::nan("")}), HasSubstr("cannot be corrected"));
    EXPECT_THAT(refusal({.maxBoost = -1}), HasSubstr("boost"));
    EXPECT_THAT(refusal({.maxCut = 100}), HasSubstr("cut"));
    EXPECT_THAT(refusal({.maxGroupDelay = 0}), HasSubstr("group delay"));
}
