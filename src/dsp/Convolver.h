#pragma once

#include "dsp/AlignedBuffer.h"
#include "dsp/VectorKernels.h"

#include <cstddef>
#include <span>
#include <vector>

namespace dsp {

/// Convolves each channel with a response of its own, without delay, for calls of any length. It
/// works in single precision, with an error below -120 dB of the output, on partitions of
/// kTransformSize samples; a call that ends inside such a block costs as much as a whole block.
/// One thread at a time.
class Convolver {
public:
    explicit Convolver(const std::vector<std::vector<float>>& responses,
                       const VectorKernels& kernels = fastestKernels());

    [[nodiscard]] std::size_t channels() const { return channels_; }

    /// Samples that are missing from the present block.
    [[nodiscard]] std::size_t missing() const { return kTransformSize - filled_; }

    /// Takes the next `frames` <= missing() samples of each channel and writes as many. Allocates
    /// nothing.
    void process(const double* const* input, double* const* output, std::size_t frames);

private:
    /// Channels that are convolved side by side.
    class Lanes {
    public:
        Lanes(const ConvolutionKernel& kernel, std::span<const std::vector<float>> responses);

        void process(const double* const* input, double* const* output, std::size_t frames,
                     std::size_t filled);

    private:
        void transformResponses(std::span<const std::vector<float>> responses);
        void take(const double* const* input, std::size_t frames, std::size_t filled);
        void convolve();
        void give(double* const* output, std::size_t frames, std::size_t filled) const;

        const ConvolutionKernel* kernel_;
        std::size_t channels_;
        std::size_t partitions_;
        std::size_t spectrumSize_;  ///< floats
        std::size_t groupSize_;     ///< of bins, floats
        /// For each group of bins those of all partitions, the last first, and the same once more:
        /// wherever the ring of windows begins, the responses to its places follow one another.
        AlignedBuffer<float> responses_;
        AlignedBuffer<float> windows_;  ///< for each group those of the last blocks, a ring
        std::size_t newest_{0};         ///< place of the present block in the rings
        AlignedBuffer<float> block_;    ///< the present block, followed by silence
        AlignedBuffer<float> spectrum_;
        AlignedBuffer<float> output_;   ///< of the present block
        AlignedBuffer<float> overlap_;  ///< of the block before, into the present one
        AlignedBuffer<float> next_;     ///< of the present block, into the next one
    };

    std::size_t channels_;
    std::vector<Lanes> lanes_;
    std::vector<std::size_t> firstChannels_;  ///< of each of the lanes
    std::size_t filled_{0};
};

}  // namespace dsp
