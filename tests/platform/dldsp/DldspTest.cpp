#include "sdk/dldsp/Dldsp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <memory>
#include <numbers>
#include <ostream>
#include <span>
#include <vector>

namespace {

constexpr unsigned kBlockBytes = DiracLimits::subSamplerBytes;

struct Rate {
    unsigned hz;
    double passBandEnd;    ///< Hz
    double stopBandBegin;  ///< Hz
};

void PrintTo(const Rate& rate, std::ostream* out) {
    *out << rate.hz << " Hz";
}

std::size_t indexOf(unsigned rate) {
    return static_cast<std::size_t>(std::ranges::find(kDiracSubSamplerRates, rate) -
                                    kDiracSubSamplerRates.begin());
}

bool sameBytes(const DiracConfiguration& a, const DiracConfiguration& b) {
    return std::memcmp(&a, &b, sizeof(DiracConfiguration)) == 0;
}

std::vector<double> tapsIn(const DiracConfiguration& configuration, unsigned rate) {
    const std::size_t index = indexOf(rate);
    std::vector<float> taps(configuration.subSamplerSizes[index] / sizeof(float));
    std::memcpy(taps.data(), configuration.subSamplerData[index].data(),
                configuration.subSamplerSizes[index]);
    return {taps.begin(), taps.end()};
}

/// By the definition of the discrete-time Fourier transform.
double gainAt(double frequency, std::span<const double> taps, unsigned rate) {
    std::complex<double> sum{0};
    for (std::size_t n = 0; n < taps.size(); ++n)
        sum += taps[n] *
               std::polar(1.0, -2 * std::numbers::pi * frequency / rate * static_cast<double>(n));
    return std::abs(sum);
}

double toDecibels(double gain) {
    return 20 * std::log10(gain);
}

}  // namespace

class DldspTest : public testing::TestWithParam<Rate> {
protected:
    bool precache(unsigned rate, unsigned speakers = 2, unsigned capacity = kBlockBytes) {
        return Dldsp::precacheSsFilterData(*configuration, rate, speakers, capacity);
    }

    std::vector<double> precachedTaps() {
        EXPECT_TRUE(precache(GetParam().hz));
        return tapsIn(*configuration, GetParam().hz);
    }

    double lowestGain(double from, double to) { return extremeGains(from, to).first; }
    double highestGain(double from, double to) { return extremeGains(from, to).second; }

    const std::unique_ptr<DiracConfiguration> configuration =
        std::make_unique<DiracConfiguration>();

private:
    std::pair<double, double> extremeGains(double from, double to) {
        constexpr int steps = 4000;
        const std::vector<double> taps = precachedTaps();
        double lowest = 1e9;
        double highest = 0;
        for (int i = 0; i <= steps; ++i) {
            const double gain = gainAt(from + (to - from) * i / steps, taps, GetParam().hz);
            lowest = std::min(lowest, gain);
            highest = std::max(highest, gain);
        }
        return {lowest, highest};
    }
};

INSTANTIATE_TEST_SUITE_P(Rates, DldspTest,
                         testing::Values(Rate{88200, 19790, 22050}, Rate{96000, 21540, 24000},
                                         Rate{176400, 19790, 44100 - 19790},
                                         Rate{192000, 21540, 48000 - 21540}));

TEST_P(DldspTest, DataFitIntoACacheFile) {
    const std::size_t index = indexOf(GetParam().hz);
    ASSERT_TRUE(precache(GetParam().hz));
    EXPECT_GT(configuration->subSamplerSizes[index], 0U);
    EXPECT_LE(configuration->subSamplerSizes[index], 1024U);
    EXPECT_EQ(configuration->subSamplerSizes[index] % sizeof(float), 0U);
}

TEST_P(DldspTest, OnlyTheBlockOfTheRateChanges) {
    const std::size_t index = indexOf(GetParam().hz);
    ASSERT_TRUE(precache(GetParam().hz));
    configuration->subSamplerSizes[index] = 0;
    configuration->subSamplerData[index].fill(0);
    EXPECT_TRUE(sameBytes(*configuration, *std::make_unique<DiracConfiguration>()));
}

TEST_P(DldspTest, SameImageAndRateGiveTheSameBytes) {
    const auto again = std::make_unique<DiracConfiguration>();
    ASSERT_TRUE(precache(GetParam().hz));
    ASSERT_TRUE(Dldsp::precacheSsFilterData(*again, GetParam().hz, 2, kBlockBytes));
    EXPECT_TRUE(sameBytes(*configuration, *again));
}

TEST_P(DldspTest, DelayIsAWholeNumberOfSamples) {
    EXPECT_EQ(precachedTaps().size() % 2, 1U);
}

TEST_P(DldspTest, PhaseIsLinear) {
    const std::vector<double> taps = precachedTaps();
    EXPECT_TRUE(std::equal(taps.begin(), taps.end(), taps.rbegin()));
}

TEST_P(DldspTest, GainAtZeroHertzIsOne) {
    EXPECT_NEAR(gainAt(0, precachedTaps(), GetParam().hz), 1, 1e-7);
}

TEST_P(DldspTest, PassBandIsFlatWithinATenThousandthOfADecibel) {
    EXPECT_GT(toDecibels(lowestGain(0, GetParam().passBandEnd)), -1e-4);
    EXPECT_LT(toDecibels(highestGain(0, GetParam().passBandEnd)), 1e-4);
}

TEST_P(DldspTest, StopBandIsDownByAHundredDecibels) {
    EXPECT_LT(toDecibels(highestGain(GetParam().stopBandBegin, GetParam().hz / 2.0)), -100);
}

TEST_P(DldspTest, NothingAliasesIntoThePassBand) {
    const double baseRate = GetParam().hz > 96000 ? GetParam().hz / 4.0 : GetParam().hz / 2.0;
    EXPECT_LE(GetParam().passBandEnd, baseRate - GetParam().stopBandBegin + 1e-6);
}

TEST_P(DldspTest, TenSpeakersAreTheMost) {
    EXPECT_TRUE(precache(GetParam().hz, 10));
    EXPECT_FALSE(precache(GetParam().hz, 11));
}

TEST_P(DldspTest, CapacityOfTheDataIsEnough) {
    ASSERT_TRUE(precache(GetParam().hz));
    const unsigned bytes = configuration->subSamplerSizes[indexOf(GetParam().hz)];
    EXPECT_TRUE(precache(GetParam().hz, 2, bytes));
    EXPECT_FALSE(precache(GetParam().hz, 2, bytes - 1));
}

class DldspRefusalTest : public DldspTest {
protected:
    void TearDown() override {
        EXPECT_TRUE(sameBytes(*configuration, *std::make_unique<DiracConfiguration>()))
            << "a refusal leaves the image alone";
    }
};

TEST_F(DldspRefusalTest, BaseRatesHaveNoSubSampler) {
    EXPECT_FALSE(precache(44100));
    EXPECT_FALSE(precache(48000));
}

TEST_F(DldspRefusalTest, UnknownRateFails) {
    EXPECT_FALSE(precache(0));
    EXPECT_FALSE(precache(88201));
    EXPECT_FALSE(precache(384000));
}

TEST_F(DldspRefusalTest, NoCapacityFails) {
    EXPECT_FALSE(precache(96000, 2, 0));
}

TEST_F(DldspRefusalTest, TooManySpeakersFail) {
    EXPECT_FALSE(precache(96000, 11));
}
