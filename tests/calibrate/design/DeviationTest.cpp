#include "calibrate/design/Deviation.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace calibrate;
using measurement::FrequencyCurve;
using measurement::PowerSpectrum;

namespace {

/// +3 dB below 1 kHz and -3 dB above.
PowerSpectrum step() {
    std::vector<double> power(65'537);
    for (std::size_t bin = 0; bin < power.size(); ++bin)
        power[bin] =
            std::pow(10.0, (static_cast<double>(bin) * 24'000 / 65'536 < 1'000 ? 3 : -3) / 10.0);
    return PowerSpectrum::ofBins(power, 48'000);
}

}  // namespace

TEST(Deviation, flatResponseHasNone) {
    EXPECT_NEAR(design::deviation(PowerSpectrum(std::vector<double>{0.5}, 48'000), {}), 0, 1e-9);
}

TEST(Deviation, stepInTheMiddleHasItsHeight) {
    EXPECT_NEAR(design::deviation(step(), {}, {100, 10'000}), 3, 0.06);
}

TEST(Deviation, targetIsTakenOff) {
    const FrequencyCurve target({{999, 3}, {1'001, -3}});
    EXPECT_LT(design::deviation(step(), target, {100, 10'000}), 0.4);
}
