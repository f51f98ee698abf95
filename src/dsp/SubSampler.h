#pragma once

#include "dsp/AlignedBuffer.h"
#include "dsp/VectorKernels.h"

#include <cstddef>
#include <span>
#include <vector>

namespace dsp {

/// Splits one channel of a high sample rate into a low band at the base rate, for correction there,
/// and puts the two together again: the delayed stream, plus what the correction changed of the low
/// band. What is not changed comes out bit by bit as it went in. One thread at a time.
class SubSampler {
public:
    /// Frames of the high rate between input and output.
    static constexpr std::size_t kLatency = 254;
    /// The longest low-pass that this latency allows.
    static constexpr std::size_t kMostTaps = kLatency + 1;
    /// Frames that one call takes at most.
    static constexpr std::size_t kMostFrames = kTransformSize;

    /// `lowPass`: linear phase, gain 1 at 0 Hz, at most kMostTaps.
    SubSampler(std::span<const float> lowPass, std::size_t ratio,
               const VectorKernels& kernels = fastestKernels());

    /// Takes the next frames and writes the samples of the low band that are due, whose number it
    /// returns: at most one for each `ratio` frames, and one more.
    std::size_t decimate(const double* input, std::size_t frames, double* lowBand);

    /// Writes the frames that decimate() took last, delayed. `change`, unless null, is what to add
    /// to each sample of the low band that decimate() gave.
    void interpolate(const double* change, double* output);

private:
    static constexpr std::size_t kMostLowFrames = kMostFrames / 2 + 1;

    [[nodiscard]] bool isDue(std::size_t frame) const { return (phase_ + frame) % ratio_ == 0; }
    void fillPhases(std::span<const float> lowPass);
    void finishBlock();

    std::size_t ratio_;
    double (*dot_)(const double*, const double*, std::size_t);
    std::size_t taps_;       ///< of the low-pass, with zeros behind
    std::size_t phaseTaps_;  ///< of each phase of the interpolator, with zeros before
    AlignedBuffer<double> lowPass_;
    AlignedBuffer<double> phases_;  ///< the interpolator's taps, a row for each phase, latest first
    AlignedBuffer<double> past_;    ///< kLatency frames, the present ones, and room for zero taps
    AlignedBuffer<double> changes_;  ///< the changes of the past, then the present ones
    std::size_t phase_{0};           ///< of the present first frame
    std::size_t frames_{0};          ///< that decimate() took
    std::size_t lowFrames_{0};       ///< that decimate() gave
};

}  // namespace dsp
