#include "dsp/DirectForm.h"
#include "dsp/ParallelSections.h"
#include "dsp/Signals.h"
#include "dsp/TestImage.h"

#include <gtest/gtest.h>

#include <cmath>

namespace dsp {
namespace {

std::vector<DiracParallelBiquad> someSections(std::size_t count) {
    std::vector<DiracParallelBiquad> sections;
    for (std::size_t i = 0; i < count; ++i)
        sections.push_back(resonance(20 * std::pow(1.2, static_cast<double>(i)), 48000, 0.01));
    return sections;
}

Channels filtered(ParallelSections* sections, const Channels& input, std::size_t block) {
    return processedBy([sections](const double* const* from, double* const* to,
                                  std::size_t frames) { sections->add(from[0], to[0], frames); },
                       input, block);
}

class SectionCounts : public testing::TestWithParam<std::size_t> {};

TEST_P(SectionCounts, AgreeWithTheDirectFormOnEveryProcessor) {
    const auto biquads = someSections(GetParam());
    const Channels input = noise(1, 20000);
    Channels expected{Channel(input[0].size())};
    for (const auto& biquad : biquads) {
        const Channel output = directSection(biquad, input[0]);
        for (std::size_t n = 0; n < output.size(); ++n)
            expected[0][n] += output[n];
    }
    const VectorKernels* kernels[4];
    const std::size_t available = availableKernels(kernels, 4);
    for (std::size_t i = 0; i < available; ++i) {
        for (const std::size_t block : {1, 77, 128}) {
            ParallelSections sections(biquads, *kernels[i]);
            EXPECT_LT(errorLevel(filtered(&sections, input, block), expected), -180)
                << kernels[i]->name << ", " << block;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Each, SectionCounts, testing::Values(1, 5, 16, 30));

TEST(ParallelSections, AreAddedToWhatIsThere) {
    ParallelSections sections(someSections(3));
    const Channels input = noise(1, 100);
    Channels once{Channel(100)};
    sections.add(input[0].data(), once[0].data(), 100);
    ParallelSections again(someSections(3));
    Channels added{Channel(100, 1.0)};
    again.add(input[0].data(), added[0].data(), 100);
    for (std::size_t n = 0; n < 100; ++n)
        EXPECT_DOUBLE_EQ(added[0][n], 1.0 + once[0][n]);
}

TEST(ParallelSections, NoneAddNothing) {
    ParallelSections sections({});
    EXPECT_TRUE(sections.empty());
    EXPECT_EQ(filtered(&sections, noise(1, 200), 128)[0], Channel(200));
}

}  // namespace
}  // namespace dsp
