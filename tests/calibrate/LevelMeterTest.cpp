#include "calibrate/LevelMeter.h"

#include <gmock/gmock.h>

#include <cmath>
#include <vector>

namespace calibrate {
namespace {

using testing::HasSubstr;
using testing::Optional;

LevelMeter measure(const std::vector<float>& samples) {
    LevelMeter meter;
    meter.add(samples);
    return meter;
}

TEST(LevelMeter, MeasuresPeakAndRms) {
    const auto meter = measure({0.5F, -0.5F, 0, 0});

    EXPECT_NEAR(meter.peak(), -6.0206, 1e-4);
    EXPECT_NEAR(meter.rms(), -9.0309, 1e-4);
    EXPECT_EQ(meter.samples(), 4U);
    EXPECT_FALSE(meter.complaint());
}

TEST(LevelMeter, AddsUpBlocks) {
    auto meter = measure({0.5F, -0.5F});
    meter.add(std::vector<float>{0, 0});

    EXPECT_NEAR(meter.rms(), -9.0309, 1e-4);
}

TEST(LevelMeter, CountsSamplesAtFullScaleOfAnyConverter) {
    const auto meter = measure({1.0F, -1.0F, 32767.0F / 32768, 0.999F, 1e30F});

    EXPECT_EQ(meter.clipped(), 4U);
    EXPECT_THAT(meter.complaint(), Optional(HasSubstr("4 samples at full scale")));
}

TEST(LevelMeter, NothingAtAllIsSilence) {
    EXPECT_EQ(measure({}).rms(), -INFINITY);
    EXPECT_THAT(measure({}).complaint(), Optional(HasSubstr("is silent")));
    EXPECT_THAT(measure({0, 0}).complaint(), Optional(HasSubstr("is silent")));
}

TEST(LevelMeter, AMicrophoneThatHearsNextToNothingIsFaint) {
    EXPECT_THAT(measure(std::vector<float>(100, 5e-5F)).complaint(),
                Optional(HasSubstr("almost silent")));
    EXPECT_FALSE(measure(std::vector<float>(100, 2e-4F)).complaint());
}

}  // namespace
}  // namespace calibrate
