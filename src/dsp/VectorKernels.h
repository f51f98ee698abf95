#pragma once

#include <cstddef>

// The inner loops, compiled for several generations of processors. Everything else in this folder
// is compiled for the oldest.

namespace dsp {

/// Samples of a block that is transformed at once, and of a partition of a response.
constexpr std::size_t kTransformSize = 128;

/// Convolution of `width` channels side by side: sample or bin n of channel c lies at
/// n * width + c. A spectrum has kTransformSize complex bins, each as `width` real parts followed
/// by `width` imaginary parts, in an order that only these functions know. Pointers are aligned to
/// 64 bytes.
///
/// The transform is the right-angle one (H. J. Nussbaumer, "Fast Fourier Transform and Convolution
/// Algorithms", chapter 3): a block of kTransformSize real samples becomes as many complex bins,
/// and the inverse of a product of two spectra holds the first half of their linear convolution in
/// its real parts and the second half in its imaginary ones. Neither padding nor a separate pass
/// for real data is needed.
struct ConvolutionKernel {
    std::size_t width;  ///< channels side by side

    /// Spectrum of kTransformSize samples.
    void (*transform)(const float* block, float* spectrum);

    /// sum = base + Σ windows[p] * responses[p], for `count` partitions; the spectra of the
    /// responses follow one another. `base` may be null and may be `sum`.
    void (*multiplyAdd)(const float* const* windows, const float* responses, std::size_t count,
                        const float* base, float* sum);

    /// Replaces a spectrum by kTransformSize samples, each as `width` real parts and `width`
    /// imaginary parts, kTransformSize times too large.
    void (*invert)(float* spectrum);
};

/// Parallel second-order sections of a channel, each (b0 + b1 z^-1) / (1 + a1 z^-1 + a2 z^-2) in
/// direct form 2. The arrays have `count` entries, a multiple of kSectionGroup, and are aligned to
/// 64 bytes.
struct SectionArrays {
    std::size_t count;
    const double* a1;
    const double* a2;
    const double* b0;
    const double* b1;
    double* state1;  ///< of one sample ago
    double* state2;  ///< of two samples ago
};

constexpr std::size_t kSectionGroup = 32;

struct VectorKernels {
    static constexpr std::size_t kMostWidths = 3;

    const char* name;
    std::size_t widths;  ///< how many kernels follow, the widest first
    ConvolutionKernel convolution[kMostWidths];

    /// output += the sum of all sections' outputs; at most kTransformSize samples.
    void (*addSections)(const SectionArrays& sections, const double* input, double* output,
                        std::size_t frames);

    /// Σ a[i] * b[i]; `count` is a multiple of kDotGroup.
    double (*dot)(const double* a, const double* b, std::size_t count);
};

constexpr std::size_t kDotGroup = 16;

/// The fastest kernels that this processor can run.
const VectorKernels& fastestKernels();

/// The kernels that this processor can run, the fastest first, as many as `places` holds. Returns
/// how many there are.
std::size_t availableKernels(const VectorKernels** places, std::size_t capacity);

}  // namespace dsp
