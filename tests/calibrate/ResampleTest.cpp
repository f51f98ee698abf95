#include "calibrate/FilterFile.h"
#include "calibrate/FrequencyResponse.h"
#include "calibrate/Resample.h"
#include "calibrate/support/SoundFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

namespace calibrate {
namespace {

using Taps = std::vector<double>;

/// Response at a frequency in Hz, added up from its definition.
std::complex<double> response(const Taps& taps, double sampleRate, double frequency) {
    std::complex<double> sum = 0;
    for (std::size_t i = 0; i < taps.size(); ++i) {
        const double time = static_cast<double>(i) / sampleRate;
        sum += taps[i] * std::polar(1.0, -2 * std::numbers::pi * frequency * time);
    }
    return sum;
}

/// Largest deviation in dB, of magnitude and phase, from the original delayed by `delay` samples.
/// The floor of a notch counts as if it were 40 dB below the peak.
double deviation(const Taps& original, double originalRate, const Taps& taps, double rate,
                 std::size_t delay) {
    const double floor = 0.01 * std::pow(10, peakOf(original).gain / 20);
    double largest = 0;
    for (double frequency = 20; frequency < 20'000; frequency *= 1.01) {
        const auto shift =
            std::polar(1.0, -2 * std::numbers::pi * frequency * static_cast<double>(delay) / rate);
        const auto wanted = response(original, originalRate, frequency) * shift;
        const auto error = std::abs(response(taps, rate, frequency) - wanted);
        largest = std::max(largest, error / std::max(std::abs(wanted), floor));
    }
    return 20 * std::log10(1 + largest);
}

Taps windowedSinc(std::size_t taps, double centre, double cutoff) {
    Taps result(taps);
    for (std::size_t i = 0; i < taps; ++i) {
        const double time = static_cast<double>(i) - centre;
        const double angle = std::numbers::pi * time;
        const double sinc = std::abs(time) < 1e-9 ? cutoff : std::sin(cutoff * angle) / angle;
        result[i] = sinc * (0.5 + 0.5 * std::cos(2 * angle / static_cast<double>(taps)));
    }
    return result;
}

Resampled resampleOne(const Taps& taps, double from, double to, std::size_t maxTaps = 1200,
                      bool mayDelay = true) {
    return resample({{taps, from}}, to, maxTaps, mayDelay);
}

TEST(Resample, TheResponseOfARoomCorrectionIsPreserved) {
    const Taps filter = decayingFilter(900, 7);
    for (const auto& [from, to] : {std::pair(48000.0, 44100.0),
                                   {44100.0, 48000.0},
                                   {96000.0, 48000.0},
                                   {88200.0, 48000.0}}) {
        const auto result = resampleOne(filter, from, to);
        EXPECT_LT(deviation(filter, from, result.taps[0], to, result.delay), 0.01)
            << from << " to " << to;
        EXPECT_LE(result.deviation, kAllowedDeviation);
    }
}

TEST(Resample, TheDeviationThatIsToldIsTheTrueOne) {
    const Taps filter = decayingFilter(300, 3);
    const auto result = resampleOne(filter, 48000, 44100);

    const double measured = deviation(filter, 48000, result.taps[0], 44100, result.delay);
    EXPECT_NEAR(result.deviation, measured, 0.3 * measured);
    EXPECT_NEAR(result.bandEdge, 20'000, 1e-6);
}

TEST(Resample, TheGainSurvivesTheRatioOfTheRates) {
    const Taps filter{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0.25, 0.5, 0.25};
    const auto result = resampleOne(filter, 48000, 44100);

    EXPECT_NEAR(std::abs(response(result.taps[0], 44100, 0)), 1, 1e-4);
    EXPECT_NEAR(std::abs(response(result.taps[0], 44100, 1000)),
                std::abs(response(filter, 48000, 1000)), 1e-4);
}

TEST(Resample, AFilterWithRoomBeforeItsPeakIsNotDelayed) {
    const Taps filter = windowedSinc(801, 400, 0.5);
    const auto result = resampleOne(filter, 48000, 44100);

    EXPECT_EQ(result.delay, 0U);
    const auto& taps = result.taps[0];
    const auto peak = std::max_element(taps.begin(), taps.end()) - taps.begin();
    EXPECT_NEAR(static_cast<double>(peak), 400 * 44100.0 / 48000, 0.51);
}

TEST(Resample, AnImpulseStaysAnImpulse) {
    const auto down = resampleOne({1}, 48000, 44100);
    EXPECT_EQ(down.delay, 0U);
    EXPECT_NEAR(down.taps[0][0], 1, 1e-9);
    EXPECT_NEAR(down.taps[0][1], 0, 1e-9);

    const auto up = resampleOne({1}, 44100, 48000);
    EXPECT_LT(deviation({1}, 44100, up.taps[0], 48000, up.delay), 0.01);
}

TEST(Resample, AllFiltersGetOneDelay) {
    const Taps early = decayingFilter(400, 5);
    const Taps late = windowedSinc(801, 400, 0.5);
    const auto result = resample({{early, 48000}, {late, 48000}}, 44100, 1200, true);

    EXPECT_GT(result.delay, 0U);
    EXPECT_LE(result.deviation, kAllowedDeviation);
    EXPECT_LT(deviation(early, 48000, result.taps[0], 44100, result.delay), 0.01);
    const auto& taps = result.taps[1];
    const auto peak = std::max_element(taps.begin(), taps.end()) - taps.begin();
    EXPECT_NEAR(static_cast<double>(peak),
                400 * 44100.0 / 48000 + static_cast<double>(result.delay), 0.51);
}

TEST(Resample, WithoutADelayTheDeviationIsTold) {
    const Taps filter = decayingFilter(400, 5);
    const auto result = resampleOne(filter, 48000, 44100, 1200, false);

    EXPECT_EQ(result.delay, 0U);
    EXPECT_GT(result.deviation, kAllowedDeviation);
    EXPECT_LT(result.deviation, 1);
}

TEST(Resample, ATailBeyondTheCapacityIsCutAndTold) {
    Taps filter(1000, 0.0);
    filter[100] = 1;
    filter[990] = 0.01;
    const auto result = resampleOne(filter, 44100, 48000, 1000);

    EXPECT_EQ(result.taps[0].size(), 1000U);
    EXPECT_NEAR(result.lostEnergy, 1e-4, 1e-7);
}

TEST(Resample, NothingIsLostWhereAllFits) {
    const auto result = resampleOne(decayingFilter(900, 1), 48000, 44100, 1000);

    EXPECT_EQ(result.lostEnergy, 0);
    EXPECT_LE(result.taps[0].size(), 1000U);
}

TEST(Resample, ASmallCapacityIsKept) {
    for (const std::size_t capacity : {1U, 2U, 5U}) {
        const auto result = resampleOne({1, 0.5, 0.25}, 48000, 44100, capacity);
        EXPECT_EQ(result.taps[0].size(), capacity);
    }
}

TEST(Resample, AFilterOfZerosStaysSilent) {
    const auto result = resampleOne({0, 0, 0}, 48000, 44100);

    EXPECT_EQ(result.deviation, 0);
    EXPECT_EQ(std::abs(response(result.taps[0], 44100, 1000)), 0);
}

TEST(Resample, BeyondTheBandNothingIsMuchLouderThanWithin) {
    const Taps filter = decayingFilter(900, 7);
    for (const bool mayDelay : {true, false}) {
        for (const auto& [from, to] : {std::pair(48000.0, 44100.0), {44100.0, 48000.0}}) {
            const auto result = resampleOne(filter, from, to, 1200, mayDelay);
            EXPECT_LT(peakOf(result.taps[0]).gain, peakOf(filter).gain + 3.1) << mayDelay << from;
        }
    }
}

TEST(Resample, TheFiltersOfARealRoomKeepTheirResponse) {
    if (testData().empty())
        GTEST_SKIP() << "no measured data here";
    const auto file = readFilterFile(testData() / "filters/living-room-48k-1000.wav", {});
    const auto result =
        resample({{file.channels[0], 48000}, {file.channels[1], 48000}}, 44100, 1000, true);
    for (std::size_t i = 0; i < 2; ++i)
        EXPECT_LT(deviation(file.channels[i], 48000, result.taps[i], 44100, result.delay), 0.01);
    EXPECT_EQ(result.lostEnergy, 0);
}

TEST(FrequencyResponse, AgreesWithItsDefinition) {
    const Taps filter = decayingFilter(50, 2);
    for (const double cycles : {0.0, 0.01, 0.25, 0.5})
        EXPECT_NEAR(std::abs(responseAt(filter, cycles) - response(filter, 1, cycles)), 0, 1e-12);
}

TEST(FrequencyResponse, FindsTheLargestGain) {
    const auto peak = peakOf(std::vector<double>{1, 0, -1});  // 2 at a quarter of the rate
    EXPECT_NEAR(peak.gain, 20 * std::log10(2), 1e-9);
    EXPECT_NEAR(peak.cycles, 0.25, 1e-3);
}

TEST(FrequencyResponse, OfZerosIsMinusInfinity) {
    EXPECT_EQ(peakOf(std::vector<double>{0, 0}).gain, -INFINITY);
}

}  // namespace
}  // namespace calibrate
