#include "dsp/KernelSets.h"
#include "dsp/KernelTemplates.h"

namespace dsp {

const VectorKernels& baselineKernels() {
    static constexpr VectorKernels kKernels{
        "128 bit", 1, {convolutionKernel<4, 4>()}, addSections<2>, dot<2>};
    return kKernels;
}

}  // namespace dsp
