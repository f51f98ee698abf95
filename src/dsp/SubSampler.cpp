#include "dsp/SubSampler.h"

#include <algorithm>

namespace dsp {
namespace {

std::size_t roundedUp(std::size_t count) {
    return (count + kDotGroup - 1) / kDotGroup * kDotGroup;
}

}  // namespace

SubSampler::SubSampler(std::span<const float> lowPass, std::size_t ratio,
                       const VectorKernels& kernels)
    : ratio_(ratio),
      dot_(kernels.dot),
      taps_(roundedUp(lowPass.size())),
      phaseTaps_(roundedUp((lowPass.size() + ratio - 1) / ratio)),
      lowPass_(taps_),
      phases_(ratio * phaseTaps_),
      past_(kLatency + kMostFrames + kDotGroup),
      changes_(phaseTaps_ + kMostLowFrames) {
    // Symmetric, so the order of the taps does not matter.
    std::ranges::copy(lowPass, lowPass_.data());
    fillPhases(lowPass);
}

void SubSampler::fillPhases(std::span<const float> lowPass) {
    for (std::size_t tap = 0; tap < lowPass.size(); ++tap) {
        double* const phase = phases_.data() + tap % ratio_ * phaseTaps_;
        phase[phaseTaps_ - 1 - tap / ratio_] = static_cast<double>(ratio_) * lowPass[tap];
    }
}

/// The window of a sample of the low band begins with the frame that leaves now, when the low-pass
/// is as long as it may be; what a shorter one is short of delays the low band the same.
std::size_t SubSampler::decimate(const double* input, std::size_t frames, double* lowBand) {
    std::copy_n(input, frames, past_.data() + kLatency);
    frames_ = frames;
    lowFrames_ = 0;
    for (std::size_t n = 0; n < frames; ++n) {
        if (isDue(n))
            lowBand[lowFrames_++] = dot_(lowPass_.data(), past_.data() + n, taps_);
    }
    return lowFrames_;
}

void SubSampler::interpolate(const double* change, double* output) {
    std::copy_n(past_.data(), frames_, output);
    if (change != nullptr) {
        std::copy_n(change, lowFrames_, changes_.data() + phaseTaps_);
        const double* window = changes_.data();
        for (std::size_t n = 0; n < frames_; ++n) {
            if (isDue(n))
                ++window;
            const std::size_t phase = (phase_ + n) % ratio_;
            output[n] += dot_(phases_.data() + phase * phaseTaps_, window, phaseTaps_);
        }
    }
    finishBlock();
}

void SubSampler::finishBlock() {
    std::copy_n(past_.data() + frames_, kLatency, past_.data());
    std::copy_n(changes_.data() + lowFrames_, phaseTaps_, changes_.data());
    phase_ = (phase_ + frames_) % ratio_;
}

}  // namespace dsp
