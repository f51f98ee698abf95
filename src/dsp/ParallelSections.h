#pragma once

#include "dsp/AlignedBuffer.h"
#include "dsp/VectorKernels.h"
#include "sdk/dldsp/DiracConfiguration.h"

#include <cstddef>
#include <span>

namespace dsp {

/// The parallel second-order sections of one channel, in double precision. One thread at a time.
class ParallelSections {
public:
    explicit ParallelSections(std::span<const DiracParallelBiquad> sections,
                              const VectorKernels& kernels = fastestKernels());

    [[nodiscard]] bool empty() const { return arrays_.count == 0; }

    /// Adds the sections' outputs to `output`; at most kTransformSize frames. Allocates nothing.
    void add(const double* input, double* output, std::size_t frames) {
        add_(arrays_, input, output, frames);
    }

private:
    static constexpr std::size_t kArrays = 6;

    AlignedBuffer<double> storage_;
    SectionArrays arrays_{};
    void (*add_)(const SectionArrays&, const double*, double*, std::size_t);
};

}  // namespace dsp
