#include "dsp/Crossfader.h"

#include <algorithm>
#include <utility>

namespace dsp {
namespace {

constexpr std::size_t kFadeMilliseconds = 20;

}  // namespace

Crossfader::Crossfader(std::unique_ptr<Engine> first, EngineHandover& handover)
    : handover_(handover),
      present_(std::move(first)),
      fade_(present_->format().rate * kFadeMilliseconds / 1000),
      storage_(present_->format().channels * kBlock),
      inputs_(present_->format().channels),
      outputs_(present_->format().channels) {
    for (std::size_t c = 0; c < outputs_.size(); ++c)
        nextOutput_.push_back(storage_.data() + c * kBlock);
}

void Crossfader::process(const double* const* input, double* const* output,
                         std::size_t frames) noexcept {
    for (std::size_t done = 0; done < frames; done += kBlock) {
        for (std::size_t c = 0; c < outputs_.size(); ++c) {
            inputs_[c] = input[c] + done;
            outputs_[c] = output[c] + done;
        }
        processBlock(inputs_.data(), outputs_.data(), std::min(kBlock, frames - done));
    }
}

void Crossfader::processBlock(const double* const* input, double* const* output,
                              std::size_t frames) {
    if (!next_)
        next_ = handover_.take();
    present_->process(input, output, frames);
    if (!next_)
        return;
    next_->process(input, nextOutput_.data(), frames);
    mixIn(output, frames);
    advance(frames);
}

void Crossfader::mixIn(double* const* output, std::size_t frames) const {
    for (std::size_t n = 0; n < frames; ++n) {
        const double share = nextShare(heard_ + n);
        for (std::size_t c = 0; c < nextOutput_.size(); ++c)
            output[c][n] = (1 - share) * output[c][n] + share * nextOutput_[c][n];
    }
}

/// From 0 to 1; `frame` counts from the first that the next engine heard.
double Crossfader::nextShare(std::size_t frame) const {
    const std::size_t warmUp = next_->warmUp();
    if (frame < warmUp)
        return 0;
    return std::min(1.0, static_cast<double>(frame - warmUp) / static_cast<double>(fade_));
}

void Crossfader::advance(std::size_t frames) {
    heard_ += frames;
    if (heard_ < next_->warmUp() + fade_)
        return;
    std::swap(present_, next_);
    handover_.retire(std::move(next_));
    heard_ = 0;
}

}  // namespace dsp
