#pragma once

#include "dsp/AlignedBuffer.h"
#include "dsp/BaseBand.h"
#include "dsp/Correction.h"
#include "dsp/DelayLine.h"
#include "dsp/StreamRate.h"
#include "dsp/SubSampler.h"
#include "dsp/VectorKernels.h"
#include "sdk/dldsp/DiracConfiguration.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace dsp {

/// A stream: Hz, and channels, which are the device's loudspeakers in order.
struct StreamFormat {
    unsigned rate{48000};
    std::size_t channels{2};

    friend bool operator==(const StreamFormat&, const StreamFormat&) = default;
};

/// Does to a stream what one image asks for: bass control, then each channel's FIR with parallel
/// sections, then its delay and gain. Its latency depends on the sample rate only, so a bypassed
/// image and any other are in step. What of the image cannot be used is passed by and told by
/// problems(); channels beyond those of the image are passed on, and so is everything at a rate
/// that the DSP does not know.
///
/// Construction allocates and computes (about a millisecond); process() does neither allocate nor
/// lock. One thread at a time.
class Engine {
public:
    Engine(const DiracConfiguration& image, const StreamFormat& format,
           const VectorKernels& kernels = fastestKernels());

    /// Frames between input and output, the same for all images at `rate`.
    static std::size_t latency(unsigned rate);

    /// Frames of a stream that an engine must have heard before it may be heard itself: until then
    /// its FIRs or its delays lack what came before.
    [[nodiscard]] std::size_t warmUp() const { return warmUp_; }

    [[nodiscard]] const StreamFormat& format() const { return format_; }
    [[nodiscard]] const std::vector<std::string>& problems() const { return problems_; }

    /// Takes `frames` of each channel and writes as many. Input and output do not overlap.
    void process(const double* const* input, double* const* output, std::size_t frames) noexcept;

private:
    static constexpr std::size_t kBlock = kTransformSize;

    /// Delay and gain, at the stream's rate.
    struct LinearStage {
        DelayLine delay;
        double factor;
    };

    void build(const Correction& correction, const StreamRate& rate, const VectorKernels& kernels);
    void processBlock(const double* const* input, double* const* output, std::size_t frames);
    void delay(const double* const* input, double* const* output, std::size_t frames);
    void correct(const double* const* input, double* const* output, std::size_t frames);
    void correctLowBand(const double* const* input, double* const* output, std::size_t frames);
    void alignChannels(double* const* output, std::size_t frames);

    StreamFormat format_;
    std::size_t warmUp_;
    std::vector<std::string> problems_;
    std::vector<DelayLine> latency_;       ///< a line for each channel; empty unless bypassed
    std::optional<BaseBand> baseBand_;     ///< none when bypassed
    std::vector<SubSampler> subSamplers_;  ///< one for each channel at high rates
    std::vector<LinearStage> linear_;      ///< one for each channel
    AlignedBuffer<double> storage_;
    std::vector<double*> lowBand_;
    std::vector<double*> corrected_;
    std::vector<const double*> inputs_;
    std::vector<double*> outputs_;
};

}  // namespace dsp
