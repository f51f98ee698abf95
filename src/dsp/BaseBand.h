#pragma once

#include "dsp/AlignedBuffer.h"
#include "dsp/BassControl.h"
#include "dsp/Convolver.h"
#include "dsp/Correction.h"
#include "dsp/ParallelSections.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace dsp {

/// What is corrected at 48 or 44.1 kHz: bass control, then each channel's FIR with its parallel
/// sections. Without delay. One thread at a time.
class BaseBand {
public:
    static constexpr std::size_t kMostFrames = kTransformSize;

    BaseBand(const Correction& correction, const VectorKernels& kernels);

    /// Whether a channel may come out other than it went in.
    [[nodiscard]] bool changes(std::size_t channel) const { return changes_[channel]; }

    /// At most kMostFrames frames; input and output do not overlap. Allocates nothing.
    void process(const double* const* input, double* const* output, std::size_t frames);

private:
    void addBassControl(const Correction& correction);
    void filter(std::size_t frames);

    std::vector<bool> changes_;
    std::optional<BassControl> bassControl_;
    Convolver convolver_;
    std::vector<std::size_t> filtered_;       ///< the channels that the convolver has, in order
    std::vector<std::size_t> unfiltered_;     ///< the others
    std::vector<ParallelSections> sections_;  ///< of these
    AlignedBuffer<double> storage_;
    std::vector<double*> managed_;       ///< each channel behind bass control
    std::vector<const double*> source_;  ///< each channel before its filter
    std::vector<const double*> filterInput_;
    std::vector<double*> filterOutput_;
};

}  // namespace dsp
