#include "dsp/ParallelSections.h"

namespace dsp {
namespace {

std::size_t roundedUp(std::size_t count) {
    return (count + kSectionGroup - 1) / kSectionGroup * kSectionGroup;
}

}  // namespace

ParallelSections::ParallelSections(std::span<const DiracParallelBiquad> sections,
                                   const VectorKernels& kernels)
    : storage_(kArrays * roundedUp(sections.size())), add_(kernels.addSections) {
    const std::size_t count = roundedUp(sections.size());
    double* const a1 = storage_.data();
    double* const a2 = a1 + count;
    double* const b0 = a2 + count;
    double* const b1 = b0 + count;
    for (std::size_t i = 0; i < sections.size(); ++i) {
        a1[i] = sections[i].a1;
        a2[i] = sections[i].a2;
        b0[i] = sections[i].b0;
        b1[i] = sections[i].b1;
    }
    arrays_ = {count, a1, a2, b0, b1, b1 + count, b1 + 2 * count};
}

}  // namespace dsp
