#include "roomsim/ConvolverStage.h"

#include <algorithm>
#include <functional>

namespace roomsim {
namespace {

std::size_t longest(const std::vector<std::span<const float>>& responses) {
    std::size_t length = 1;
    for (const auto& response : responses)
        length = std::max(length, response.size());
    return length;
}

}  // namespace

/// sum += window * response. Separate arrays, and the promise that they do not overlap, let the
/// compiler use vector instructions.
void ConvolverStage::multiplyAdd(Spectrum window, Spectrum response, Spectrum sum,
                                 std::size_t bins) {
    const float* __restrict windowReal = window.real;
    const float* __restrict windowImaginary = window.imaginary;
    const float* __restrict responseReal = response.real;
    const float* __restrict responseImaginary = response.imaginary;
    float* __restrict real = sum.real;
    float* __restrict imaginary = sum.imaginary;
    for (std::size_t i = 0; i < bins; ++i) {
        real[i] += windowReal[i] * responseReal[i] - windowImaginary[i] * responseImaginary[i];
        imaginary[i] += windowReal[i] * responseImaginary[i] + windowImaginary[i] * responseReal[i];
    }
}

ConvolverStage::ConvolverStage(const std::vector<std::span<const float>>& responses,
                               std::size_t block)
    : block_(block),
      partitions_((longest(responses) + block - 1) / block),
      fft_(2 * block),
      inputs_(responses.size()),
      earlier_(2 * fft_.bins()),
      sum_(2 * fft_.bins()),
      output_(2 * block) {
    for (std::size_t i = 0; i < inputs_.size(); ++i)
        transformResponse(responses[i], inputs_[i]);
    reset();
}

void ConvolverStage::transformResponse(std::span<const float> response, Input& input) {
    input.responses.resize(partitions_ * 2 * fft_.bins());
    const float scale = 1.0F / static_cast<float>(2 * block_);  // of the inverse transform
    for (std::size_t partition = 0; partition * block_ < response.size(); ++partition) {
        const auto part = response.subspan(partition * block_,
                                           std::min(block_, response.size() - partition * block_));
        std::vector<float> padded(2 * block_);
        std::ranges::transform(part, padded.begin(), [scale](float tap) { return tap * scale; });
        const Spectrum to = spectrum(input.responses, partition);
        fft_.forward(padded.data(), to.real, to.imaginary);
    }
}

void ConvolverStage::process(const float* const* input, std::size_t count, float* output) {
    const float* from = output_.data() + block_ + filled_;
    take(input, count);
    if (output != nullptr || missing() == 0)
        transformWindows();
    if (output != nullptr) {
        computeOutput();
        std::transform(from, from + count, output, output, std::plus<>());
    }
    if (missing() == 0)
        advance();
}

void ConvolverStage::processDelayed(const float* const* input, std::size_t count, float* output) {
    if (output != nullptr) {
        computeDelayedOutput();
        const float* from = output_.data() + block_ + filled_;
        std::transform(from, from + count, output, output, std::plus<>());
    }
    take(input, count);
    if (missing() == 0) {
        transformWindows();
        advance();
    }
}

void ConvolverStage::reset() {
    for (Input& input : inputs_) {
        input.window.assign(2 * block_, 0.0F);
        input.history.resize(slots() * 2 * fft_.bins());
        input.sounds.assign(slots(), false);
    }
    filled_ = 0;
    earlierIsValid_ = false;
    delayedIsValid_ = false;
}

void ConvolverStage::take(const float* const* input, std::size_t count) {
    for (std::size_t i = 0; i < inputs_.size(); ++i)
        std::copy_n(input[i], count, inputs_[i].window.data() + block_ + filled_);
    filled_ += count;
}

void ConvolverStage::transformWindows() {
    for (Input& input : inputs_)
        transformWindow(input);
}

void ConvolverStage::transformWindow(Input& input) {
    const bool sounds =
        std::ranges::any_of(input.window, [](float sample) { return sample != 0.0F; });
    input.sounds[slot_] = sounds;
    if (!sounds)
        return;
    const Spectrum to = spectrum(input.history, slot_);
    fft_.forward(input.window.data(), to.real, to.imaginary);
}

void ConvolverStage::advance() {
    slot_ = (slot_ + 1) % slots();
    for (Input& input : inputs_) {
        const auto middle = input.window.begin() + static_cast<std::ptrdiff_t>(block_);
        std::copy(middle, input.window.end(), input.window.begin());
        std::fill(middle, input.window.end(), 0.0F);
        input.sounds[slot_] = false;
    }
    filled_ = 0;
    earlierIsValid_ = false;
    delayedIsValid_ = false;
}

void ConvolverStage::computeOutput() {
    if (!earlierIsValid_) {
        std::ranges::fill(earlier_, 0.0F);
        earlierSounds_ = accumulate(1, partitions_, 0, earlier_);
        earlierIsValid_ = true;
    }
    sum_ = earlier_;
    const bool currentSounds = accumulate(0, 1, 0, sum_);
    toOutput(earlierSounds_ || currentSounds);
}

void ConvolverStage::computeDelayedOutput() {
    if (delayedIsValid_)
        return;
    std::ranges::fill(sum_, 0.0F);
    toOutput(accumulate(0, partitions_, 1, sum_));
    delayedIsValid_ = true;
}

void ConvolverStage::toOutput(bool sounds) {
    if (!sounds) {
        std::ranges::fill(output_, 0.0F);
        return;
    }
    const Spectrum from = spectrum(sum_, 0);
    fft_.inverse(from.real, from.imaginary, output_.data());
}

/// Adds what the partitions in [first, last) give to the block `age` blocks ago, and tells whether
/// that is more than silence. Partition p works on the window p blocks before.
bool ConvolverStage::accumulate(std::size_t first, std::size_t last, std::size_t age,
                                std::vector<float>& sum) {
    const Spectrum to = spectrum(sum, 0);
    bool sounds = false;
    for (Input& input : inputs_) {
        for (std::size_t partition = first; partition < last; ++partition) {
            const std::size_t slot = slotOf(age + partition);
            if (!input.sounds[slot])
                continue;
            multiplyAdd(spectrum(input.history, slot), spectrum(input.responses, partition), to,
                        fft_.bins());
            sounds = true;
        }
    }
    return sounds;
}

ConvolverStage::Spectrum ConvolverStage::spectrum(std::vector<float>& spectra,
                                                  std::size_t index) const {
    float* start = spectra.data() + index * 2 * fft_.bins();
    return {start, start + fft_.bins()};
}

/// The place in the rings of the block `age` blocks before the current one.
std::size_t ConvolverStage::slotOf(std::size_t age) const {
    return (slot_ + slots() - age) % slots();
}

}  // namespace roomsim
