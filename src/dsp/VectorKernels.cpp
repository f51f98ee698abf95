#include "dsp/VectorKernels.h"

#include "dsp/KernelSets.h"

namespace dsp {
namespace {

struct Candidate {
    bool runs;
    const VectorKernels& (*kernels)();
};

#ifdef VESK_DSP_X86_KERNELS
bool hasAvx2() {
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
}

bool hasAvx512() {
    return hasAvx2() && __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl");
}
#endif

}  // namespace

std::size_t availableKernels(const VectorKernels** places, std::size_t capacity) {
    const Candidate candidates[] = {
#ifdef VESK_DSP_X86_KERNELS
        {hasAvx512(), avx512Kernels},
        {hasAvx2(), avx2Kernels},
#endif
        {true, baselineKernels},
    };
    std::size_t count = 0;
    for (const Candidate& candidate : candidates) {
        if (candidate.runs && count < capacity)
            places[count++] = &candidate.kernels();
    }
    return count;
}

const VectorKernels& fastestKernels() {
    const VectorKernels* fastest = nullptr;
    availableKernels(&fastest, 1);
    return *fastest;
}

}  // namespace dsp
