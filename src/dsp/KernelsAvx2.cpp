#include "dsp/KernelSets.h"
#include "dsp/KernelTemplates.h"

namespace dsp {

const VectorKernels& avx2Kernels() {
    static constexpr VectorKernels kKernels{
        "AVX2", 2, {convolutionKernel<8, 8>(), convolutionKernel<4, 8>()}, addSections<4>, dot<4>};
    return kKernels;
}

}  // namespace dsp
