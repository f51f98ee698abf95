#include "dsp/Convolver.h"

#include <algorithm>
#include <utility>

namespace dsp {
namespace {

using Responses = std::span<const std::vector<float>>;

std::size_t partitionsOf(Responses responses) {
    std::size_t longest = 1;
    for (const auto& response : responses)
        longest = std::max(longest, response.size());
    return (longest + kTransformSize - 1) / kTransformSize;
}

/// The widest kernel that has no lane to spare, otherwise the narrowest: what an empty lane costs
/// in memory traffic is more than what a wider one saves.
const ConvolutionKernel& kernelFor(std::size_t channels, const VectorKernels& kernels) {
    for (std::size_t i = 0; i + 1 < kernels.widths; ++i) {
        if (kernels.convolution[i].width <= channels)
            return kernels.convolution[i];
    }
    return kernels.convolution[kernels.widths - 1];
}

}  // namespace

Convolver::Lanes::Lanes(const ConvolutionKernel& kernel, Responses responses)
    : kernel_(&kernel),
      channels_(responses.size()),
      partitions_(partitionsOf(responses)),
      spectrumSize_(2 * kTransformSize * kernel.width),
      groupSize_(spectrumSize_ / kernel.groups),
      responses_(2 * partitions_ * spectrumSize_),
      windows_(partitions_ * spectrumSize_),
      block_(kTransformSize * kernel.width),
      spectrum_(spectrumSize_),
      output_(kTransformSize * kernel.width),
      overlap_(kTransformSize * kernel.width),
      next_(kTransformSize * kernel.width) {
    transformResponses(responses);
}

void Convolver::Lanes::transformResponses(Responses responses) {
    const float scale = 1.0F / kTransformSize;  // undoes that of the inverse transform
    for (std::size_t partition = 0; partition < partitions_; ++partition) {
        block_.clear();
        const std::size_t first = partition * kTransformSize;
        for (std::size_t c = 0; c < channels_; ++c) {
            const std::size_t end = std::min(responses[c].size(), first + kTransformSize);
            for (std::size_t tap = first; tap < end; ++tap)
                block_[(tap - first) * kernel_->width + c] = responses[c][tap] * scale;
        }
        for (const std::size_t copy : {std::size_t{1}, std::size_t{2}})
            kernel_->transform(
                block_.data(), spectrum_.data(),
                responses_.data() + (copy * partitions_ - 1 - partition) * groupSize_,
                2 * partitions_ * groupSize_);
    }
    block_.clear();
}

void Convolver::Lanes::process(const double* const* input, double* const* output,
                               std::size_t frames, std::size_t filled) {
    take(input, frames, filled);
    convolve();
    give(output, frames, filled);
    if (filled + frames < kTransformSize)
        return;
    std::swap(overlap_, next_);
    newest_ = (newest_ + 1) % partitions_;
}

void Convolver::Lanes::take(const double* const* input, std::size_t frames, std::size_t filled) {
    const std::size_t width = kernel_->width;
    kernel_->interleave(input, channels_, frames, block_.data() + filled * width);
    const std::size_t end = (filled + frames) * width;
    std::fill_n(block_.data() + end, block_.size() - end, 0.0F);
}

void Convolver::Lanes::convolve() {
    kernel_->transform(block_.data(), spectrum_.data(), windows_.data() + newest_ * groupSize_,
                       partitions_ * groupSize_);
    kernel_->multiplyAdd(windows_.data(),
                         responses_.data() + (partitions_ - 1 - newest_) * groupSize_, partitions_,
                         spectrum_.data());
    kernel_->invert(spectrum_.data(), overlap_.data(), output_.data(), next_.data());
}

void Convolver::Lanes::give(double* const* output, std::size_t frames, std::size_t filled) const {
    kernel_->separate(output_.data() + filled * kernel_->width, frames, channels_, output);
}

Convolver::Convolver(const std::vector<std::vector<float>>& responses, const VectorKernels& kernels)
    : channels_(responses.size()) {
    for (std::size_t first = 0; first < channels_;) {
        const ConvolutionKernel& kernel = kernelFor(channels_ - first, kernels);
        const std::size_t count = std::min(kernel.width, channels_ - first);
        lanes_.emplace_back(kernel, Responses(responses).subspan(first, count));
        firstChannels_.push_back(first);
        first += count;
    }
}

void Convolver::process(const double* const* input, double* const* output, std::size_t frames) {
    for (std::size_t i = 0; i < lanes_.size(); ++i)
        lanes_[i].process(input + firstChannels_[i], output + firstChannels_[i], frames, filled_);
    filled_ = (filled_ + frames) % kTransformSize;
}

}  // namespace dsp
