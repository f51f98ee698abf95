#include "roomsim/PartitionedConvolver.h"

#include <algorithm>

namespace roomsim {
namespace {

using Responses = std::vector<std::vector<float>>;

// The tail's output comes one of its blocks late, so it serves the taps from its block size on and
// the head those before.
constexpr std::size_t kHeadBlock = 256;
constexpr std::size_t kTailBlock = 4096;

std::size_t longest(const Responses& responses) {
    return std::ranges::max(responses, {}, &std::vector<float>::size).size();
}

std::vector<std::span<const float>> heads(const Responses& responses) {
    std::vector<std::span<const float>> heads;
    for (const auto& response : responses)
        heads.emplace_back(response.data(), std::min(response.size(), kTailBlock));
    return heads;
}

std::vector<std::span<const float>> tails(const Responses& responses) {
    std::vector<std::span<const float>> tails;
    for (const auto& response : responses)
        tails.push_back(std::span(response).subspan(std::min(response.size(), kTailBlock)));
    return tails;
}

}  // namespace

PartitionedConvolver::PartitionedConvolver(const Responses& responses)
    : inputs_(responses.size()), length_(longest(responses)), head_(heads(responses), kHeadBlock) {
    if (length_ > kTailBlock)
        tail_.emplace(tails(responses), kTailBlock);
}

void PartitionedConvolver::process(const float* const* input, std::size_t count, float* output) {
    std::fill_n(output, count, 0.0F);
    run(input, count, output);
}

void PartitionedConvolver::skip(const float* const* input, std::size_t count) {
    run(input, count, nullptr);
}

void PartitionedConvolver::reset() {
    head_.reset();
    if (tail_)
        tail_->reset();
}

/// The head's blocks divide the tail's, so a piece that the head can take never straddles two
/// blocks of the tail.
void PartitionedConvolver::run(const float* const* input, std::size_t count, float* output) {
    std::vector<const float*> from(input, input + inputs_);
    while (count > 0) {
        const std::size_t piece = std::min(count, head_.missing());
        head_.process(from.data(), piece, output);
        if (tail_)
            tail_->processDelayed(from.data(), piece, output);
        for (const float*& channel : from)
            channel += piece;
        if (output != nullptr)
            output += piece;
        count -= piece;
    }
}

}  // namespace roomsim
