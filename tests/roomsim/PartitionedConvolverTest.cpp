#include "roomsim/PartitionedConvolver.h"
#include "roomsim/Signals.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace roomsim {
namespace {

/// Feeds `inputs` in pieces of the given sizes, over and over.
Signal convolved(PartitionedConvolver& convolver, const Signals& inputs,
                 const std::vector<std::size_t>& pieces) {
    const std::size_t length = inputs.front().size();
    Signal output(length);
    std::size_t done = 0;
    for (std::size_t turn = 0; done < length; ++turn) {
        const std::size_t piece = std::min(pieces[turn % pieces.size()], length - done);
        std::vector<const float*> from;
        for (const Signal& input : inputs)
            from.push_back(input.data() + done);
        convolver.process(from.data(), piece, output.data() + done);
        done += piece;
    }
    return output;
}

class ConvolverLength : public testing::TestWithParam<std::size_t> {};

TEST_P(ConvolverLength, EqualsDirectConvolutionWithin120Decibels) {
    const Signals inputs{randomSignal(14000, 1)};
    const Signals responses{randomResponse(GetParam(), 2)};
    PartitionedConvolver convolver(responses);
    EXPECT_LT(worstErrorDb(convolved(convolver, inputs, {1000}),
                           convolvedDirectly(inputs, responses, 14000)),
              -120.0);
}

INSTANTIATE_TEST_SUITE_P(AroundTheBlockSizes, ConvolverLength,
                         testing::Values(1, 2, 255, 256, 257, 4095, 4096, 4097, 8192, 9000));

class ConvolverPieces : public testing::TestWithParam<std::vector<std::size_t>> {};

TEST_P(ConvolverPieces, DoNotChangeTheOutput) {
    const Signals inputs{randomSignal(12000, 3)};
    const Signals responses{randomResponse(6000, 4)};
    PartitionedConvolver convolver(responses);
    EXPECT_LT(worstErrorDb(convolved(convolver, inputs, GetParam()),
                           convolvedDirectly(inputs, responses, 12000)),
              -120.0);
}

INSTANTIATE_TEST_SUITE_P(OfAnySize, ConvolverPieces,
                         testing::Values(std::vector<std::size_t>{1, 2, 3, 500},
                                         std::vector<std::size_t>{128},
                                         std::vector<std::size_t>{255, 257},
                                         std::vector<std::size_t>{480},
                                         std::vector<std::size_t>{12000}));

TEST(PartitionedConvolver, AddsUpInputsWithResponsesOfDifferentLengths) {
    const Signals inputs{randomSignal(9000, 5), randomSignal(9000, 6), randomSignal(9000, 7)};
    const Signals responses{randomResponse(10, 8), randomResponse(5000, 9),
                            randomResponse(300, 10)};
    PartitionedConvolver convolver(responses);
    EXPECT_LT(worstErrorDb(convolved(convolver, inputs, {441}),
                           convolvedDirectly(inputs, responses, 9000)),
              -120.0);
}

TEST(PartitionedConvolver, SilenceIsExactlyZeroBeforeAndAfterTheSound) {
    const Signals inputs{impulse(30000, 7000, 1.0F)};
    const Signals responses{randomResponse(6000, 11)};
    PartitionedConvolver convolver(responses);
    const Signal output = convolved(convolver, inputs, {512});
    const auto sounds = [](float sample) { return sample != 0.0F; };
    EXPECT_FALSE(std::any_of(output.begin(), output.begin() + 6900, sounds));
    EXPECT_FALSE(std::any_of(output.end() - 4096, output.end(), sounds));
}

TEST(PartitionedConvolver, SkippedInputIsHeardAfterwards) {
    const Signals inputs{randomSignal(16000, 12)};
    const Signals responses{randomResponse(6000, 13)};
    const Signal expected = convolvedDirectly(inputs, responses, 16000);
    PartitionedConvolver convolver(responses);
    for (const std::size_t skipped : {1U, 300U, 4096U, 9001U}) {
        convolver.reset();
        const float* from = inputs[0].data();
        convolver.skip(&from, skipped);
        from += skipped;
        Signal output(16000 - skipped);
        convolver.process(&from, output.size(), output.data());
        const Signal tail(expected.begin() + skipped, expected.end());
        EXPECT_LT(worstErrorDb(output, tail), -120.0) << skipped;
    }
}

TEST(PartitionedConvolver, ForgetsAllInputOnReset) {
    const Signals responses{randomResponse(6000, 14)};
    PartitionedConvolver convolver(responses);
    const Signals inputs{randomSignal(10000, 15)};
    const Signal first = convolved(convolver, inputs, {700});
    convolver.reset();
    EXPECT_EQ(convolved(convolver, inputs, {700}), first);
}

TEST(PartitionedConvolver, DeadSpeakersGiveExactSilence) {
    const Signals inputs{randomSignal(2000, 16)};
    PartitionedConvolver convolver(Signals{Signal(5000)});
    EXPECT_EQ(convolved(convolver, inputs, {333}), Signal(2000));
}

}  // namespace
}  // namespace roomsim
