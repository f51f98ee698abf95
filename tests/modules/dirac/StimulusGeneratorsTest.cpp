#include "modules/dirac/Fourier.h"
#include "modules/dirac/StimulusGenerators.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdint>
#include <ctime>
#include <numbers>
#include <numeric>
#include <thread>

namespace {

using Samples = std::vector<float>;

constexpr long double kPi = std::numbers::pi_v<long double>;

/// The parameters of a sweep, by name.
struct Sweep {
    double startFreq{20};
    double endFreq{20000};
    unsigned length{4800};
    unsigned silence{0};
    unsigned numPeriods{1};
    double sampleRate{48000};
    double fadeOutTailHz{0};

    Samples samples() const {
        return generateLogSweep(startFreq, endFreq, length, silence, numPeriods, sampleRate,
                                fadeOutTailHz);
    }

    /// The closed form: the frequency grows by the same factor from sample to sample.
    float at(unsigned i) const {
        const long double ratio = static_cast<long double>(endFreq) / startFreq;
        const long double growth = std::pow(ratio, static_cast<long double>(i) / (length - 1));
        const long double cycles = startFreq * length / sampleRate / std::log(ratio);
        return static_cast<float>(std::sin(2 * kPi * cycles * (growth - 1)));
    }

    /// The sample at which the sweep passes `frequency`.
    double passes(double frequency) const {
        return length * std::log2(frequency / startFreq) / std::log2(endFreq / startFreq);
    }
};

bool isEqual(Samples::const_iterator begin, Samples::const_iterator end,
             Samples::const_iterator other) {
    return std::equal(begin, end, other);
}

/// The noise of `seed`, with the sum of the rows formed anew for each sample.
std::vector<double> expectedPinkNoise(std::uint32_t seed, unsigned count) {
    const auto uniform = [&seed] {
        seed = static_cast<std::uint32_t>((std::uint64_t{seed} * 196314165U + 907633515U) %
                                          (std::uint64_t{1} << 32U));
        return static_cast<double>(seed / 512U) / (1U << 23U) - 0.5;
    };
    std::vector<double> rows(5, 0.0);
    std::vector<double> samples;
    double maximum = 0.0;
    for (unsigned j = 1; j <= count; ++j) {
        unsigned row = 0;
        while (row < 4 && j % (2U << row) == 0)
            ++row;
        rows[row] = uniform();
        double sample = uniform();
        for (const double value : rows)
            sample += value;
        samples.push_back(sample / 8);
        maximum = std::max(maximum, std::abs(sample / 8));
    }
    for (double& sample : samples)
        sample = std::sin(sample / maximum);
    return samples;
}

/// Two signals and the second in which both were made.
struct PinkNoisePair {
    Samples first;
    Samples second;
    std::uint32_t seed;
};

PinkNoisePair pinkNoiseWithinOneSecond(unsigned count) {
    for (;;) {
        const std::time_t before = std::time(nullptr);
        PinkNoisePair pair{generatePinkNoise(48000, count), generatePinkNoise(44100, count),
                           static_cast<std::uint32_t>(before)};
        if (std::time(nullptr) == before)
            return pair;
    }
}

/// Power of the octave that begins at `begin` cycles in 4096 samples, averaged over the signal.
double octavePower(const Samples& samples, unsigned begin) {
    constexpr unsigned kBlock = 4096;
    constexpr unsigned kProbes = 8;
    double power = 0;
    for (std::size_t start = 0; start + kBlock <= samples.size(); start += kBlock) {
        for (unsigned probe = 0; probe < kProbes; ++probe) {
            const unsigned cycles = begin + begin * probe / kProbes;
            std::complex<double> sum;
            for (unsigned i = 0; i < kBlock; ++i) {
                const double angle = -2 * std::numbers::pi * cycles * i / kBlock;
                sum += static_cast<double>(samples[start + i]) * std::polar(1.0, angle);
            }
            power += std::norm(sum) * begin / kProbes;
        }
    }
    return power;
}

/// The noise's power by its definition, at `frequency` in cycles per sample: white samples, and
/// rows of white samples that are held for 2, 4, 8 and twice 16 of them.
double definedPower(double frequency) {
    const auto held = [frequency](double samples) {
        const double ratio = std::sin(std::numbers::pi * frequency * samples) /
                             std::sin(std::numbers::pi * frequency);
        return ratio * ratio / samples;
    };
    return 1.0 + held(2) + held(4) + held(8) + 2.0 * held(16);
}

}  // namespace

TEST(LogSweepTest, OnePeriodWithoutSilenceIsTheSweep) {
    const Sweep sweep{.length = 4800};
    const Samples samples = sweep.samples();
    ASSERT_EQ(samples.size(), 4800U);
    for (unsigned i = 0; i < sweep.length; ++i)
        ASSERT_NEAR(samples[i], sweep.at(i), 1e-6) << i;
}

TEST(LogSweepTest, FollowsTheClosedFormForALongSweep) {
    const Sweep sweep{.startFreq = 10.5, .endFreq = 22000, .length = 480000, .sampleRate = 44100};
    const Samples samples = sweep.samples();
    for (unsigned i = 0; i < sweep.length; i += 7)
        ASSERT_NEAR(samples[i], sweep.at(i), 1e-5) << i;
}

TEST(LogSweepTest, FirstSampleIsZero) {
    EXPECT_EQ(Sweep{}.samples()[0], 0.0F);
}

TEST(LogSweepTest, AmplitudeIsOne) {
    const Samples samples = Sweep{}.samples();
    EXPECT_NEAR(*std::max_element(samples.begin(), samples.end()), 1.0, 1e-3);
    EXPECT_NEAR(*std::min_element(samples.begin(), samples.end()), -1.0, 1e-3);
}

TEST(LogSweepTest, LastSampleReachesTheEndFrequency) {
    // One cycle of the phase scale more or less would show here.
    const Sweep sweep{.startFreq = 100, .endFreq = 1000, .length = 1000};
    const double phase =
        2 * std::numbers::pi * 100 * 1000 / 48000 / std::log(10.0) * (1000.0 / 100 - 1);
    EXPECT_NEAR(sweep.samples().back(), std::sin(phase), 1e-5);
}

TEST(LogSweepTest, PeriodsAreCopiesOfTheFirstWithSilenceBehind) {
    const Sweep sweep{.length = 1000, .silence = 250, .numPeriods = 3, .fadeOutTailHz = 500};
    const Samples samples = sweep.samples();
    ASSERT_EQ(samples.size(), 3U * 1250U);
    for (const int period : {1, 2})
        EXPECT_TRUE(
            isEqual(samples.begin(), samples.begin() + 1000, samples.begin() + period * 1250));
    for (const int period : {0, 1, 2})
        EXPECT_TRUE(std::all_of(samples.begin() + period * 1250 + 1000,
                                samples.begin() + (period + 1) * 1250,
                                [](float sample) { return sample == 0.0F; }));
}

TEST(LogSweepTest, PeriodsWithoutSilenceFollowEachOther) {
    const Samples samples = Sweep{.length = 100, .numPeriods = 2}.samples();
    ASSERT_EQ(samples.size(), 200U);
    EXPECT_TRUE(isEqual(samples.begin(), samples.begin() + 100, samples.begin() + 100));
}

TEST(LogSweepTest, TailOfOneHertzOrLessDoesNotFade) {
    const Samples unfaded = Sweep{.fadeOutTailHz = 0.0}.samples();
    EXPECT_EQ((Sweep{.fadeOutTailHz = 1.0}.samples()), unfaded);
    EXPECT_EQ((Sweep{.fadeOutTailHz = -100.0}.samples()), unfaded);
    EXPECT_EQ((Sweep{.fadeOutTailHz = std::nan("")}.samples()), unfaded);
    EXPECT_NE((Sweep{.fadeOutTailHz = 100.0}.samples()), unfaded);
}

TEST(LogSweepTest, TailThatBeginsAtTheEndDoesNotFade) {
    // 1.001 Hz below 20 kHz is less than half a sample before the end.
    const Sweep unfaded{.length = 4800};
    const Sweep sweep{.length = 4800, .fadeOutTailHz = 1.001};
    ASSERT_GT(sweep.passes(20000 - 1.001), 4799.5);
    EXPECT_EQ(sweep.samples(), unfaded.samples());
}

TEST(LogSweepTest, FadedSweepEndsWithExactlyZero) {
    EXPECT_EQ(Sweep{.fadeOutTailHz = 500}.samples().back(), 0.0F);
    EXPECT_EQ((Sweep{.length = 100001, .fadeOutTailHz = 3000}.samples().back()), 0.0F);
}

TEST(LogSweepTest, FadeIsARaisedCosineFromTheTailOn) {
    const Sweep sweep{.length = 4800, .fadeOutTailHz = 5000};
    const auto start = static_cast<unsigned>(std::lround(sweep.passes(15000)));
    ASSERT_LT(start, 4700U);
    const Samples unfaded = Sweep{.length = 4800}.samples();
    const Samples faded = sweep.samples();

    EXPECT_TRUE(isEqual(unfaded.begin(), unfaded.begin() + start, faded.begin()));
    EXPECT_LT(std::abs(faded[start]), std::abs(unfaded[start])) << "slightly attenuated already";
    for (unsigned i = start; i < 4800; ++i) {
        const double half = std::cos(std::numbers::pi / 2 * (i + 1 - start) / (4800 - start));
        ASSERT_NEAR(faded[i], unfaded[i] * half * half, 1e-5) << i;
    }
}

TEST(LogSweepTest, TailThatReachesBelowTheStartDoesNotFade) {
    const Samples unfaded = Sweep{}.samples();
    EXPECT_EQ((Sweep{.fadeOutTailHz = 19990}.samples()), unfaded) << "before the first sample";
    EXPECT_EQ((Sweep{.fadeOutTailHz = 20000}.samples()), unfaded) << "0 Hz";
    EXPECT_EQ((Sweep{.fadeOutTailHz = 30000}.samples()), unfaded) << "a negative frequency";
}

TEST(LogSweepTest, NoPeriodsAreEmpty) {
    EXPECT_TRUE(Sweep{.numPeriods = 0}.samples().empty());
}

TEST(LogSweepTest, LengthsBelowTwoAreEmpty) {
    EXPECT_TRUE((Sweep{.length = 0, .silence = 10}.samples().empty()));
    EXPECT_TRUE((Sweep{.length = 1, .silence = 10}.samples().empty()));
    EXPECT_EQ((Sweep{.length = 2, .silence = 10}.samples().size()), 12U);
}

TEST(LogSweepTest, SizesBeyond32BitsAreEmpty) {
    EXPECT_TRUE((Sweep{.length = 65536, .silence = 0, .numPeriods = 65536}.samples().empty()));
    EXPECT_TRUE((Sweep{.length = 65536, .silence = 1, .numPeriods = 65536}.samples().empty()));
    EXPECT_TRUE((Sweep{.length = 16, .silence = 0xFFFFFFFFU}.samples().empty()));
    EXPECT_TRUE((Sweep{.length = 0xFFFFFFFFU, .silence = 0xFFFFFFFFU, .numPeriods = 0xFFFFFFFFU}
                     .samples()
                     .empty()));
}

TEST(PinkNoiseTest, NoSamplesAreEmpty) {
    EXPECT_TRUE(generatePinkNoise(48000, 0).empty());
    EXPECT_TRUE(generatePinkNoise(0, 0).empty());
}

TEST(PinkNoiseTest, ASingleSampleIsItsOwnMaximum) {
    const Samples samples = generatePinkNoise(48000, 1);
    ASSERT_EQ(samples.size(), 1U);
    EXPECT_FLOAT_EQ(std::abs(samples[0]), std::sin(1.0F));
}

TEST(PinkNoiseTest, PeaksAtTheSineOfOne) {
    const Samples samples = generatePinkNoise(48000, 262144);
    ASSERT_EQ(samples.size(), 262144U);
    float peak = 0;
    for (const float sample : samples)
        peak = std::max(peak, std::abs(sample));
    EXPECT_FLOAT_EQ(peak, std::sin(1.0F));
}

TEST(PinkNoiseTest, CallsWithinOneSecondAreIdenticalAtAnyRate) {
    const PinkNoisePair pair = pinkNoiseWithinOneSecond(5000);
    EXPECT_EQ(pair.first, pair.second);
}

TEST(PinkNoiseTest, CallsInDifferentSecondsDiffer) {
    const std::time_t second = std::time(nullptr);
    const Samples first = generatePinkNoise(48000, 1000);
    while (std::time(nullptr) <= second + 1)
        std::this_thread::yield();
    EXPECT_NE(generatePinkNoise(48000, 1000), first);
}

TEST(PinkNoiseTest, IsTheShapedSumOfItsRows) {
    constexpr unsigned kCount = 20000;
    const PinkNoisePair pair = pinkNoiseWithinOneSecond(kCount);
    const std::vector<double> expected = expectedPinkNoise(pair.seed, kCount);
    for (unsigned i = 0; i < kCount; ++i)
        ASSERT_NEAR(pair.first[i], expected[i], 2e-5) << i;
}

TEST(PinkNoiseTest, OctavesCarrySimilarPower) {
    const Samples samples = generatePinkNoise(48000, 65536);
    const double reference = octavePower(samples, 1024);
    for (const unsigned begin : {256U, 512U})
        EXPECT_NEAR(10 * std::log10(octavePower(samples, begin) / reference), 0.0, 3.0) << begin;
}

TEST(PinkNoiseTest, HasTheSpectrumOfItsDefinition) {
    // 87 s: a third of an octave at 40 Hz holds 800 independent values.
    constexpr std::size_t kLength = std::size_t{1} << 22U;
    constexpr double kRate = 48000.0;
    const auto spectrum = spectrumOf(generatePinkNoise(kRate, kLength), kLength);
    std::vector<double> ratios;  // dB, of each third of an octave
    for (double centre = 40.0; centre <= 16000.0; centre *= std::pow(2.0, 1.0 / 3.0)) {
        const double edge = std::pow(2.0, 1.0 / 6.0);
        double measured = 0.0;
        double defined = 0.0;
        const auto last = static_cast<std::size_t>(centre * edge / kRate * kLength);
        for (auto k = static_cast<std::size_t>(centre / edge / kRate * kLength); k < last; ++k) {
            measured += std::norm(spectrum[k]);
            defined += definedPower(static_cast<double>(k) / kLength);
        }
        ratios.push_back(10.0 * std::log10(measured / defined));
    }
    // The level follows from the peak, which is a matter of chance.
    const double level =
        std::accumulate(ratios.begin(), ratios.end(), 0.0) / static_cast<double>(ratios.size());
    for (const double ratio : ratios)
        EXPECT_NEAR(ratio, level, 1.0);
}
