#include "dsp/KernelSets.h"
#include "dsp/KernelTemplates.h"

namespace dsp {

const VectorKernels& avx512Kernels() {
    static constexpr VectorKernels kKernels{
        "AVX-512",
        3,
        {convolutionKernel<16, 16>(), convolutionKernel<8, 16>(), convolutionKernel<4, 16>()},
        addSections<8>,
        dot<8>};
    return kKernels;
}

}  // namespace dsp
