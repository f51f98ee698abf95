#include "dsp/Signals.h"
#include "dsp/SubSampler.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace dsp {
namespace {

/// A triangle: symmetric, gain 1.
std::vector<float> triangle(std::size_t half) {
    std::vector<float> taps;
    for (std::size_t i = 1; i < 2 * half; ++i)
        taps.push_back(static_cast<float>(std::min(i, 2 * half - i)) /
                       static_cast<float>(half * half));
    return taps;
}

/// Leads the stream through the sampler; `change(low)` is what to do to the low band.
template <typename Change>
Channels through(SubSampler* sampler, const Channels& input, std::size_t block,
                 const Change& change) {
    return processedBy(
        [&](const double* const* from, double* const* to, std::size_t frames) {
            for (std::size_t done = 0; done < frames;) {
                Channel low(SubSampler::kMostFrames);
                const std::size_t piece = std::min(frames - done, SubSampler::kMostFrames);
                low.resize(sampler->decimate(from[0] + done, piece, low.data()));
                change(&low);
                sampler->interpolate(low.data(), to[0] + done);
                done += piece;
            }
        },
        input, block);
}

class SubSamplerRatios : public testing::TestWithParam<std::size_t> {};

TEST_P(SubSamplerRatios, WithoutAChangeTheStreamIsOnlyDelayed) {
    const Channels input = noise(1, 3000);
    SubSampler sampler(triangle(20), GetParam());
    const auto nothing = [](Channel* low) { std::ranges::fill(*low, 0.0); };
    EXPECT_EQ(through(&sampler, input, 0, nothing), delayed(input, SubSampler::kLatency));
}

TEST_P(SubSamplerRatios, GivesOneSampleForEachFewFrames) {
    SubSampler sampler(triangle(20), GetParam());
    std::size_t samples = 0;
    const Channels input = noise(1, 1200);
    through(&sampler, input, 0, [&](Channel* low) { samples += low->size(); });
    EXPECT_EQ(samples, 1200 / GetParam());
}

TEST_P(SubSamplerRatios, LowBandOfAConstantIsTheConstant) {
    SubSampler sampler(triangle(20), GetParam());
    Channel last;
    through(&sampler, {Channel(2000, 0.25)}, 128, [&](Channel* low) { last = *low; });
    EXPECT_NEAR(last.back(), 0.25, 1e-7);
}

/// The change that removes the low band leaves nothing of a slow tone, so both ways through are in
/// step whatever the length of the low-pass.
TEST_P(SubSamplerRatios, ShorterLowPassesAreInStepToo) {
    for (const std::size_t half : {128, 100, 37}) {
        SubSampler sampler(triangle(half), GetParam());
        const Channels input{tone(20, 96000, 40000)};
        const Channels output = through(&sampler, input, 128, [](Channel* low) {
            std::ranges::for_each(*low, [](double& sample) { sample = -sample; });
        });
        for (std::size_t n = 1000; n < output[0].size(); ++n)
            ASSERT_NEAR(output[0][n], 0, 0.012) << half;
    }
}

INSTANTIATE_TEST_SUITE_P(Each, SubSamplerRatios, testing::Values(2, 4));

}  // namespace
}  // namespace dsp
