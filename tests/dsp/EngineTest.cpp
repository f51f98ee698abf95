#include "dsp/DirectForm.h"
#include "dsp/Engine.h"
#include "dsp/Signals.h"
#include "dsp/TestImage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <numbers>
#include <random>

namespace dsp {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr unsigned kRates[] = {44100, 48000, 88200, 96000, 176400, 192000};

Channels through(Engine* engine, const Channels& input, std::size_t block = 128) {
    return processedBy([engine](const double* const* from, double* const* to,
                                std::size_t frames) { engine->process(from, to, frames); },
                       input, block);
}

Channels through(const DiracConfiguration& image, unsigned rate, const Channels& input,
                 std::size_t block = 128) {
    Engine engine(image, {rate, input.size()});
    return through(&engine, input, block);
}

class EngineRates : public testing::TestWithParam<unsigned> {};

TEST_P(EngineRates, FilterAgreesWithTheDirectForm) {
    const auto image = filterImage(2, 1000, 30);
    const Channels input = noise(2, 12000);
    EXPECT_LT(errorLevel(through(*image, GetParam(), input), directDsp(*image, input, GetParam())),
              -120);
}

TEST_P(EngineRates, FirAloneAgreesWithTheDirectForm) {
    const auto image = filterImage(2, 1000, 0);
    const Channels input = noise(2, 8000);
    EXPECT_LT(errorLevel(through(*image, GetParam(), input), directDsp(*image, input, GetParam())),
              -120);
}

TEST_P(EngineRates, SectionsAloneAgreeWithTheDirectForm) {
    const auto image = filterImage(2, 0, 30);
    const Channels input = noise(2, 20000);
    EXPECT_LT(errorLevel(through(*image, GetParam(), input), directDsp(*image, input, GetParam())),
              -120);
}

TEST_P(EngineRates, LinearStageAgreesWithTheDirectForm) {
    const auto image = plainImage();
    for (auto& group : image->groups) {
        group[0].linearEnabled = group[1].linearEnabled = 1;
        group[0].delay = 3.21F;
        group[0].gain = -4.5F;
        group[1].delay = 0;
        group[1].gain = 2;
    }
    const Channels input = noise(3, 4000);
    EXPECT_LT(errorLevel(through(*image, GetParam(), input), directDsp(*image, input, GetParam())),
              -280);
}

TEST_P(EngineRates, BassControlAgreesWithTheDirectForm) {
    const auto image = filterImage(3, 500, 10);
    addBassControl(image.get());
    const Channels input = noise(3, 12000);
    EXPECT_LT(errorLevel(through(*image, GetParam(), input), directDsp(*image, input, GetParam())),
              -120);
}

TEST_P(EngineRates, CallsOfAnyLengthGiveTheSame) {
    const auto image = filterImage(2, 700, 30);
    addBassControl(image.get());
    const Channels input = noise(2, 9000);
    EXPECT_LT(errorLevel(through(*image, GetParam(), input, 0), through(*image, GetParam(), input)),
              -120);
}

TEST_P(EngineRates, BypassPassesEveryBitWithTheSameLatency) {
    const auto image = filterImage(2, 1000, 30);
    image->bypass = 1;
    const Channels input = noise(2, 3000);
    EXPECT_EQ(through(*image, GetParam(), input, 0), delayed(input, Engine::latency(GetParam())));
}

TEST_P(EngineRates, AnImageWithoutFiltersPassesEveryBitWithTheSameLatency) {
    const Channels input = noise(2, 3000);
    EXPECT_EQ(through(*plainImage(), GetParam(), input, 0),
              delayed(input, Engine::latency(GetParam())));
}

TEST_P(EngineRates, AFilterOfOneIsInStepWithBypass) {
    const auto image = plainImage();
    for (auto& group : image->groups)
        group[0].filterEnabled = 1;
    const Channels input = noise(1, 3000);
    EXPECT_LT(
        errorLevel(through(*image, GetParam(), input), delayed(input, Engine::latency(GetParam()))),
        -120);
}

/// The response by the filter's formula, from poles and taps.
std::complex<double> responseOf(const DiracChannelFilter& filter, double turnsPerSample) {
    const auto delay = std::polar(1.0, -2 * std::numbers::pi * turnsPerSample);
    std::complex<double> sum = 0;
    for (std::size_t i = filter.tapCount; i-- > 0;)
        sum = sum * delay + static_cast<double>(filter.taps[i]);
    for (std::size_t i = 0; i < filter.biquadCount; ++i) {
        const DiracParallelBiquad& b = filter.biquads[i];
        sum +=
            (static_cast<double>(b.b0) + static_cast<double>(b.b1) * delay) /
            (1.0 + static_cast<double>(b.a1) * delay + static_cast<double>(b.a2) * delay * delay);
    }
    return sum;
}

/// What the engine does to a tone, once it has settled, and what it should, by the filter's
/// response at the base rate. Independent of how the engine works at high rates.
void expectToneAfter(const DiracConfiguration& image, unsigned rate, double frequency,
                     std::complex<double> response) {
    const Channels input{tone(frequency, rate, rate)};
    const double limit = 4e-5 * (1 + std::abs(response));
    const Channels output = through(image, rate, input);
    const double w = 2 * std::numbers::pi * frequency / rate;
    for (std::size_t n = rate / 4 * 3; n < input[0].size(); ++n) {
        const double phase =
            w * (static_cast<double>(n) - static_cast<double>(Engine::latency(rate)));
        ASSERT_NEAR(output[0][n], (response * std::polar(1.0, phase)).real(), limit)
            << frequency << " Hz, frame " << n;
    }
}

TEST_P(EngineRates, TonesOfTheLowBandGetTheFiltersResponse) {
    const auto image = filterImage(1, 300, 20);
    const unsigned baseRate = GetParam() % 44100 == 0 ? 44100 : 48000;
    const auto& filter = image->groups[baseRate == 44100 ? 1 : 0][0];
    for (const double frequency : {100.0, 997.0, 5000.0, 15000.0, 19000.0})
        expectToneAfter(*image, GetParam(), frequency, responseOf(filter, frequency / baseRate));
}

TEST_P(EngineRates, TonesAboveTheLowBandAreOnlyDelayed) {
    if (GetParam() <= 48000)
        return;
    const double frequency = GetParam() * 0.45;
    expectToneAfter(*filterImage(1, 300, 20), GetParam(), frequency, 1.0);
}

INSTANTIATE_TEST_SUITE_P(Each, EngineRates, testing::ValuesIn(kRates));

TEST(Engine, LatencyIsThatOfTheRate) {
    for (const unsigned rate : {44100U, 48000U, 32000U, 1U})
        EXPECT_EQ(Engine::latency(rate), 0U);
    for (const unsigned rate : {88200U, 96000U, 176400U, 192000U})
        EXPECT_EQ(Engine::latency(rate), 254U);
}

TEST(Engine, WarmsUpForAsLongAsAFirAndTheLongestDelays) {
    const auto image = plainImage();
    for (auto& group : image->groups) {
        group[1].linearEnabled = 1;
        group[1].delay = 100;
    }
    EXPECT_EQ(Engine(*image, {48000, 2}).warmUp(), 1024U + 4800U);
    EXPECT_EQ(Engine(*image, {176400, 2}).warmUp(), 4096U + 17640U);
    EXPECT_EQ(Engine(*image, {32000, 2}).warmUp(), 1024U);
    image->bypass = 1;
    EXPECT_EQ(Engine(*image, {48000, 2}).warmUp(), 1024U);
    EXPECT_EQ(Engine(*image, {192000, 2}).warmUp(), 4096U);
}

TEST(Engine, AnUnknownRatePassesEveryBitAndIsReported) {
    const auto image = filterImage(2, 100, 5);
    Engine engine(*image, {32000, 2});
    const Channels input = noise(2, 1000);
    EXPECT_EQ(through(&engine, input), input);
    EXPECT_THAT(engine.problems(), ElementsAre("no correction at 32000 Hz"));
}

class ChannelCounts : public testing::TestWithParam<std::size_t> {};

TEST_P(ChannelCounts, EachChannelIsCorrectedAsFarAsTheImageGoes) {
    const auto image = filterImage(10, 200, 5);
    const Channels input = noise(GetParam(), 3000);
    const Channels output = through(*image, 48000, input);
    EXPECT_LT(errorLevel(output, directDsp(*image, input, 48000)), -120);
    for (std::size_t c = 10; c < GetParam(); ++c)
        EXPECT_EQ(output[c], input[c]);
}

INSTANTIATE_TEST_SUITE_P(Each, ChannelCounts, testing::Values(1, 2, 3, 5, 8, 10, 11, 16, 40));

TEST(Engine, BassControlMayUseMoreLinesThanTheStreamHasChannels) {
    const auto image = plainImage();
    addBassControl(image.get());
    const Channels input = noise(2, 5000);
    EXPECT_LT(errorLevel(through(*image, 48000, input), directDsp(*image, input, 48000)), -120);
}

TEST(Engine, ABrokenChannelDoesNotTouchTheOthers) {
    const auto image = filterImage(2, 100, 5);
    image->groups[0][1].biquads[0].a2 = 1.5F;
    Engine engine(*image, {48000, 2});
    const Channels input = noise(2, 4000);
    const Channels output = through(&engine, input);
    EXPECT_EQ(output[1], input[1]);
    EXPECT_LT(errorLevel({output[0]}, {directFilter(image->groups[0][0], input[0])}), -120);
    EXPECT_THAT(engine.problems(),
                ElementsAre("channel 1 is left uncorrected: biquad 0 is unstable"));
}

TEST(Engine, AnImageOfAnyBytesGivesFiniteOutput) {
    std::minstd_rand random(3);
    for (int i = 0; i < 30; ++i) {
        auto image = std::make_unique<DiracConfiguration>();
        auto* const bytes = reinterpret_cast<unsigned char*>(image.get());
        std::generate_n(bytes, sizeof *image, [&] { return static_cast<unsigned char>(random()); });
        image->bypass = 0;
        for (const unsigned rate : kRates) {
            for (const Channel& channel : through(*image, rate, noise(3, 500))) {
                for (const double sample : channel)
                    ASSERT_TRUE(std::isfinite(sample));
            }
        }
    }
}

TEST(Engine, AfterSoundAndLongSilenceNothingIsLeft) {
    const auto image = filterImage(2, 1000, 30);
    Channels input = noise(2, 4 * 48000);
    for (Channel& channel : input)
        std::fill(channel.begin() + 1000, channel.end(), 0.0);
    const Channels output = through(*image, 48000, input);
    EXPECT_LT(std::abs(output[0].back()), 1e-30);
    EXPECT_EQ(std::fpclassify(output[0].back()) == FP_SUBNORMAL, false);
}

TEST(Engine, LeavesTheThreadsArithmeticAsItWas) {
    Engine engine(*filterImage(1, 10, 1), {48000, 1});
    through(&engine, noise(1, 300));
    volatile double small = std::numeric_limits<double>::min();
    EXPECT_GT(small / 2, 0);
}

}  // namespace
}  // namespace dsp
