#include "calibrate/measurement/ClockDrift.h"
#include "calibrate/measurement/Deconvolution.h"
#include "calibrate/measurement/SampleRate.h"
#include "calibrate/measurement/Signals.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace calibrate::measurement;

namespace {

const LogSweep kSweep = fullBandSweep(48'000);

/// A recording by a clock that runs this much too fast.
std::vector<double> drifted(const std::vector<double>& recording, double ppm) {
    return atSampleRate(recording, 48'000, 48'000 * (1 + ppm * 1e-6));
}

}  // namespace

class ClockDrift : public testing::TestWithParam<double> {};

TEST_P(ClockDrift, isFoundAndTakenOut) {
    const auto room = smallRoom(12'000, 900, 0.3, 1);
    const auto recording = drifted(heard(sweepSamples(kSweep), room, -60, 2), GetParam());
    const auto smeared = deconvolve(recording, 48'000, kSweep);
    const double drift = estimateClockDrift(smeared.response, kSweep);
    EXPECT_NEAR(drift, GetParam(), 3);
    const auto sharp = deconvolve(withoutDrift(recording, 48'000, drift), 48'000, kSweep);
    const auto truth = deconvolve(heard(sweepSamples(kSweep), room, -60, 2), 48'000, kSweep);
    EXPECT_NEAR(std::ranges::max(sharp.response.samples), std::ranges::max(truth.response.samples),
                0.05);  // resampling takes the uppermost octave's end
}

INSTANTIATE_TEST_SUITE_P(Ppm, ClockDrift, testing::Values(-120.0, 0.0, 40.0, 300.0));

TEST(ClockDriftOfALowSweep, isNotGuessed) {
    const LogSweep low{10, 300, 24'000, 0, 1, 48'000, 0};
    EXPECT_EQ(estimateClockDrift({48'000, smallRoom(6'000, 400, 0.5, 4), 0}, low), 0);
}
