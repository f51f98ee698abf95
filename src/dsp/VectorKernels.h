#pragma once

#include <cstddef>

// The inner loops, compiled for several generations of processors. Everything else in this folder
// is compiled for the oldest.

namespace dsp {

/// Samples of a block that is transformed at once, and of a partition of a response.
constexpr std::size_t kTransformSize = 128;

/// Convolution of `width` channels side by side: sample n of channel c lies at n * width + c. A
/// spectrum has kTransformSize complex bins of each channel in `groups` groups of equal size, in an
/// order that only these functions know. Pointers are aligned to 64 bytes.
///
/// The transform is the right-angle one (H. J. Nussbaumer, "Fast Fourier Transform and Convolution
/// Algorithms", chapter 3): a block of kTransformSize real samples becomes as many complex bins,
/// and the inverse of a product of two spectra holds the first half of their linear convolution in
/// its real parts and the second half in its imaginary ones. Neither padding nor a separate pass
/// for real data is needed.
struct ConvolutionKernel {
    std::size_t width;   ///< channels side by side
    std::size_t groups;  ///< of bins

    /// Brings `count` channels side by side, and back.
    void (*interleave)(const double* const* channels, std::size_t count, std::size_t frames,
                       float* to);
    void (*separate)(const float* from, std::size_t frames, std::size_t count,
                     double* const* channels);

    /// Spectrum of kTransformSize samples. Bin k goes to `bins` + k * `stride`, in floats;
    /// `scratch` is a spectrum that is overwritten.
    void (*transform)(const float* block, float* scratch, float* bins, std::size_t stride);

    /// Bin k of `sum` is the sum of `count` products. Those of bin k of windows and responses
    /// follow one another; from bin to bin there are `count` windows, and twice as many responses.
    void (*multiplyAdd)(const float* windows, const float* responses, std::size_t count,
                        float* sum);

    /// The inverse transform, kTransformSize times too large: `output` = real parts + `overlap`,
    /// and `next` = imaginary parts. The spectrum is overwritten.
    void (*invert)(float* spectrum, const float* overlap, float* output, float* next);
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
