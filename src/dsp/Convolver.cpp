#include "dsp/Convolver.h"

#include <algorithm>

namespace dsp {
namespace {

using Responses = std::span<const std::vector<float>>;

std::size_t partitionsOf(Responses responses) {
    std::size_t longest = 1;
    for (const auto& response : responses)
        longest = std::max(longest, response.size());
    return (longest + kTransformSize - 1) / kTransformSize;
}

/// The narrowest kernel that takes all `channels`, otherwise the widest.
const ConvolutionKernel& kernelFor(std::size_t channels, const VectorKernels& kernels) {
    const ConvolutionKernel* chosen = kernels.convolution;
    for (std::size_t i = 1; i < kernels.widths; ++i) {
        if (kernels.convolution[i].width >= channels)
            chosen = &kernels.convolution[i];
    }
    return *chosen;
}

}  // namespace

Convolver::Lanes::Lanes(const ConvolutionKernel& kernel, Responses responses)
    : kernel_(&kernel),
      channels_(responses.size()),
      partitions_(partitionsOf(responses)),
      spectrumSize_(2 * kTransformSize * kernel.width),
      responses_(partitions_ * spectrumSize_),
      windows_(partitions_ * spectrumSize_),
      past_(partitions_),
      block_(kTransformSize * kernel.width),
      earlier_(spectrumSize_),
      result_(spectrumSize_),
      overlap_(kTransformSize * kernel.width) {
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
        kernel_->transform(block_.data(), responses_.data() + partition * spectrumSize_);
    }
    block_.clear();
}

float* Convolver::Lanes::window(std::size_t age) {
    return windows_.data() + (newest_ + partitions_ - age) % partitions_ * spectrumSize_;
}

void Convolver::Lanes::process(const double* const* input, double* const* output,
                               std::size_t frames, std::size_t filled) {
    const std::size_t width = kernel_->width;
    if (filled == 0)
        beginBlock();
    for (std::size_t c = 0; c < channels_; ++c) {
        float* to = block_.data() + filled * width + c;
        for (std::size_t n = 0; n < frames; ++n)
            to[n * width] = static_cast<float>(input[c][n]);
    }
    kernel_->transform(block_.data(), window(0));
    const float* const present = window(0);
    kernel_->multiplyAdd(&present, responses_.data(), 1, earlier_.data(), result_.data());
    kernel_->invert(result_.data());
    for (std::size_t c = 0; c < channels_; ++c) {
        const float* from = result_.data() + 2 * filled * width + c;
        const float* overlap = overlap_.data() + filled * width + c;
        for (std::size_t n = 0; n < frames; ++n)
            output[c][n] = static_cast<double>(from[2 * n * width] + overlap[n * width]);
    }
    if (filled + frames == kTransformSize)
        endBlock();
}

void Convolver::Lanes::beginBlock() {
    for (std::size_t age = 1; age < partitions_; ++age)
        past_[age - 1] = window(age);
    kernel_->multiplyAdd(past_.data(), responses_.data() + spectrumSize_, partitions_ - 1, nullptr,
                         earlier_.data());
}

void Convolver::Lanes::endBlock() {
    const std::size_t width = kernel_->width;
    for (std::size_t n = 0; n < kTransformSize; ++n)
        std::copy_n(result_.data() + (2 * n + 1) * width, width, overlap_.data() + n * width);
    block_.clear();
    newest_ = (newest_ + 1) % partitions_;
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
