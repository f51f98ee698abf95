#pragma once

#include "dsp/VectorKernels.h"

namespace dsp {

// One set for each file of kernels. Only processors with the instructions may run them.

const VectorKernels& baselineKernels();
const VectorKernels& avx2Kernels();
const VectorKernels& avx512Kernels();

}  // namespace dsp
