#include "dsp/Convolver.h"
#include "dsp/DirectForm.h"
#include "dsp/Signals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

namespace dsp {
namespace {

std::vector<const VectorKernels*> allKernels() {
    std::vector<const VectorKernels*> kernels(4);
    kernels.resize(availableKernels(kernels.data(), kernels.size()));
    return kernels;
}

std::vector<std::vector<float>> someResponses(std::size_t channels, std::size_t taps) {
    std::mt19937 random(7);
    std::normal_distribution<float> normal;
    std::vector<std::vector<float>> responses(channels, std::vector<float>(taps));
    for (auto& response : responses)
        std::ranges::generate(response, [&] { return normal(random); });
    return responses;
}

Channels directly(const std::vector<std::vector<float>>& responses, const Channels& input) {
    Channels output;
    for (std::size_t c = 0; c < input.size(); ++c)
        output.push_back(directConvolution(responses[c], input[c]));
    return output;
}

Channels convolved(Convolver* convolver, const Channels& input, std::size_t block) {
    const auto process = [convolver](const double* const* from, double* const* to,
                                     std::size_t frames) {
        std::vector<const double*> inputs(from, from + convolver->channels());
        std::vector<double*> outputs(to, to + convolver->channels());
        while (frames > 0) {
            const std::size_t piece = std::min(frames, convolver->missing());
            convolver->process(inputs.data(), outputs.data(), piece);
            for (std::size_t c = 0; c < inputs.size(); ++c) {
                inputs[c] += piece;
                outputs[c] += piece;
            }
            frames -= piece;
        }
    };
    return processedBy(process, input, block);
}

struct ConvolverCase {
    std::size_t channels;
    std::size_t taps;
    std::size_t block;
};

class ConvolverForms : public testing::TestWithParam<ConvolverCase> {};

TEST_P(ConvolverForms, AgreesWithTheDirectFormOnEveryProcessor) {
    const auto [channels, taps, block] = GetParam();
    const auto responses = someResponses(channels, taps);
    const Channels input = noise(channels, 5000);
    const Channels expected = directly(responses, input);
    for (const VectorKernels* kernels : allKernels()) {
        Convolver convolver(responses, *kernels);
        EXPECT_LT(errorLevel(convolved(&convolver, input, block), expected), -120) << kernels->name;
    }
}

INSTANTIATE_TEST_SUITE_P(Each, ConvolverForms,
                         testing::Values(ConvolverCase{1, 1, 128}, ConvolverCase{2, 1000, 128},
                                         ConvolverCase{10, 1000, 128}, ConvolverCase{10, 1024, 0},
                                         ConvolverCase{3, 128, 0}, ConvolverCase{5, 129, 64},
                                         ConvolverCase{17, 300, 0}, ConvolverCase{33, 40, 512},
                                         ConvolverCase{2, 256, 1}),
                         [](const auto& test) {
                             return std::to_string(test.param.channels) + "Channels" +
                                    std::to_string(test.param.taps) + "Taps" +
                                    std::to_string(test.param.block) + "Frames";
                         });

TEST(Convolver, TakesResponsesOfDifferentLengthsAndEmptyOnes) {
    const std::vector<std::vector<float>> responses{{}, {0.5F}, std::vector<float>(700, 0.01F)};
    const Channels input = noise(3, 2000);
    Convolver convolver(responses);
    const Channels output = convolved(&convolver, input, 0);
    EXPECT_EQ(output[0], Channel(2000));
    EXPECT_LT(errorLevel(output, directly(responses, input)), -120);
}

TEST(Convolver, KeepsAQuietChannelApartFromALoudOne) {
    const auto responses = someResponses(2, 500);
    Channels input = noise(2, 3000);
    std::ranges::for_each(input[1], [](double& sample) { sample *= 1e-4; });
    Convolver convolver(responses);
    const Channels output = convolved(&convolver, input, 128);
    EXPECT_LT(errorLevel({output[1]}, {directConvolution(responses[1], input[1])}), -120);
}

TEST(Convolver, WithoutChannelsDoesNothing) {
    Convolver convolver({});
    convolver.process(nullptr, nullptr, 100);
    EXPECT_EQ(convolver.missing(), 28U);
}

}  // namespace
}  // namespace dsp
