#pragma once

#include "roomsim/ConvolverStage.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace roomsim {

/// Convolves several inputs with one impulse response each and adds them up, without delay, for
/// calls of any length. Short partitions compute the responses' heads, long ones the rest. The
/// error is below -120 dB of the output. One thread at a time.
class PartitionedConvolver {
public:
    /// One response per input, at least one; they may differ in length.
    explicit PartitionedConvolver(const std::vector<std::vector<float>>& responses);

    [[nodiscard]] std::size_t inputs() const { return inputs_; }

    /// Samples of the longest response: what is older leaves no trace in the output.
    [[nodiscard]] std::size_t length() const { return length_; }

    /// Takes the next `count` samples of each input and writes as many of output.
    void process(const float* const* input, std::size_t count, float* output);

    /// Takes the next `count` samples of each input and gives no output, which is much cheaper.
    void skip(const float* const* input, std::size_t count);

    /// As if all input had been silence.
    void reset();

private:
    void run(const float* const* input, std::size_t count, float* output);

    std::size_t inputs_;
    std::size_t length_;
    ConvolverStage head_;
    std::optional<ConvolverStage> tail_;  ///< of the taps from its block size on
};

}  // namespace roomsim
