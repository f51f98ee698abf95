#include "calibrate/design/Prediction.h"
#include "calibrate/measurement/Signals.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

using namespace calibrate;
using namespace calibrate::design;

namespace {

const ParallelFilter kFilter{48'000, {0.5F, 0.25F}, {{-1.9F, 0.95F, 0.01F, 0}}};

}  // namespace

TEST(Prediction, isTheConvolution) {
    const measurement::ImpulseResponse response{48'000, smallRoom(4'000, 100, 1, 1), 0.25};
    const auto predicted = predict(response, kFilter);
    const auto impulse = kFilter.impulseResponse(200);
    double direct = 0;
    for (std::size_t k = 0; k <= 150; ++k)
        direct += impulse[k] * response.samples[150 - k];
    EXPECT_NEAR(predicted.samples[150], direct, 1e-9);
    EXPECT_EQ(predicted.start, 0.25);
}

TEST(Prediction, lastsAsLongAsTheFilterRings) {
    const measurement::ImpulseResponse brief{48'000, smallRoom(4'000, 100, 1, 1), 0};
    EXPECT_EQ(predict(brief, kFilter).samples.size(), 48'000U);
    const measurement::ImpulseResponse lasting{48'000, smallRoom(60'000, 100, 1, 1), 0};
    EXPECT_EQ(predict(lasting, kFilter).samples.size(), 60'000U);
}

TEST(Prediction, spectrumOfAnotherRateIsMultipliedByTheResponse) {
    const measurement::PowerSpectrum flat(std::vector<double>{1}, 44'100);
    const auto predicted = predict(flat, kFilter);
    for (const double frequency : {50.0, 1'000.0, 10'000.0})
        EXPECT_NEAR(10 * std::log10(predicted.mean(frequency, frequency) /
                                    std::norm(kFilter.response(frequency))),
                    0, 0.01);
}

TEST(Prediction, otherRateOfAResponseIsRefused) {
    EXPECT_THROW(predict(measurement::ImpulseResponse{44'100, {1}, 0}, kFilter),
                 std::invalid_argument);
}

TEST(Prediction, alignmentDelaysAndLowers) {
    const auto result = aligned({48'000, {1, 0.5}, 0.1}, -20, 0.002);
    EXPECT_NEAR(result.samples[0], 0.1, 1e-12);
    EXPECT_NEAR(result.start, 0.102, 1e-12);
}

TEST(Prediction, positionsOfAMeanCountAlike) {
    const measurement::ImpulseResponse quiet{48'000, {0.001}, 0};
    const measurement::ImpulseResponse loud{48'000, {10}, 0};
    EXPECT_NEAR(meanSpectrum({quiet, loud}).mean(100, 200), 1, 1e-6);
}
