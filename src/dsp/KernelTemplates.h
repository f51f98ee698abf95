#pragma once

#include "dsp/TransformTables.h"
#include "dsp/VectorKernels.h"

#include <cstddef>

// The kernels in terms of vectors of the compiler, for the files that compile them with the
// instructions of one generation of processors. Everything here has internal linkage, and nothing
// of the standard library is used: a function that the linker may merge with that of another file
// must not be compiled with instructions that an old processor lacks.

namespace dsp {
namespace {

/// `width` floats in one register.
template <std::size_t width>
struct Floats {
    using Type [[gnu::vector_size(width * sizeof(float))]] = float;
};

template <std::size_t width>
struct Doubles {
    using Type [[gnu::vector_size(width * sizeof(double))]] = double;
    /// In memory, wherever a double may lie.
    using Unaligned [[gnu::vector_size(width * sizeof(double)), gnu::aligned(sizeof(double))]] =
        double;
};

template <typename Vector>
struct Complex {
    Vector re;
    Vector im;
};

template <typename Vector>
[[gnu::always_inline]] inline Complex<Vector> operator+(const Complex<Vector>& a,
                                                        const Complex<Vector>& b) {
    return {a.re + b.re, a.im + b.im};
}

template <typename Vector>
[[gnu::always_inline]] inline Complex<Vector> operator-(const Complex<Vector>& a,
                                                        const Complex<Vector>& b) {
    return {a.re - b.re, a.im - b.im};
}

template <typename Vector>
[[gnu::always_inline]] inline Complex<Vector> timesI(const Complex<Vector>& a) {
    return {-a.im, a.re};
}

template <typename Vector>
[[gnu::always_inline]] inline Complex<Vector> times(const Complex<Vector>& a, const Rotation& w) {
    return {a.re * w.cosine - a.im * w.sine, a.re * w.sine + a.im * w.cosine};
}

template <typename Vector>
[[gnu::always_inline]] inline Complex<Vector> timesConjugate(const Complex<Vector>& a,
                                                             const Rotation& w) {
    return {a.re * w.cosine + a.im * w.sine, a.im * w.cosine - a.re * w.sine};
}

template <typename Vector>
struct Quad {
    Complex<Vector> x0, x1, x2, x3;
};

/// The transform of four points.
template <typename Vector>
[[gnu::always_inline]] inline Quad<Vector> butterfly(const Quad<Vector>& x) {
    const auto even = x.x0 + x.x2;
    const auto evenDifference = x.x0 - x.x2;
    const auto odd = x.x1 + x.x3;
    const auto oddDifference = timesI(x.x1 - x.x3);
    return {even + odd, evenDifference - oddDifference, even - odd, evenDifference + oddDifference};
}

/// The way back, four times too large.
template <typename Vector>
[[gnu::always_inline]] inline Quad<Vector> inverseButterfly(const Quad<Vector>& x) {
    const auto sum = x.x0 + x.x2;
    const auto difference = x.x0 - x.x2;
    const auto oddSum = x.x1 + x.x3;
    const auto oddDifference = timesI(x.x1 - x.x3);
    return {sum + oddSum, difference + oddDifference, sum - oddSum, difference - oddDifference};
}

template <typename Vector>
[[gnu::always_inline]] inline Quad<Vector> loadQuad(const Complex<Vector>* x, std::size_t step) {
    return {x[0], x[step], x[2 * step], x[3 * step]};
}

template <typename Vector>
[[gnu::always_inline]] inline void storeQuad(const Quad<Vector>& quad, Complex<Vector>* x,
                                             std::size_t step) {
    x[0] = quad.x0;
    x[step] = quad.x1;
    x[2 * step] = quad.x2;
    x[3 * step] = quad.x3;
}

template <typename Vector>
[[gnu::always_inline]] inline Quad<Vector> rotated(const Quad<Vector>& x, const Twiddle& w) {
    return {x.x0, times(x.x1, w.once), times(x.x2, w.twice), times(x.x3, w.thrice)};
}

template <typename Vector>
[[gnu::always_inline]] inline Quad<Vector> rotatedBack(const Quad<Vector>& x, const Twiddle& w) {
    return {x.x0, timesConjugate(x.x1, w.once), timesConjugate(x.x2, w.twice),
            timesConjugate(x.x3, w.thrice)};
}

// Decimation in frequency: 128 points fall into 4 times 32, these into 4 times 8. The last 8 are
// transformed at once. The bins stay where they fall; the way back takes them from there.

constexpr std::size_t kQuarter = kTransformSize / 4;
constexpr std::size_t kSixteenth = kTransformSize / 16;

/// Eight points: two transforms of four, then four of two.
template <typename Vector>
[[gnu::always_inline]] inline void transformEight(Complex<Vector>* x, const Twiddle* twiddles) {
    const auto first = rotated(butterfly(loadQuad(x, 2)), twiddles[0]);
    const auto second = rotated(butterfly(loadQuad(x + 1, 2)), twiddles[1]);
    x[0] = first.x0 + second.x0;
    x[1] = first.x0 - second.x0;
    x[2] = first.x1 + second.x1;
    x[3] = first.x1 - second.x1;
    x[4] = first.x2 + second.x2;
    x[5] = first.x2 - second.x2;
    x[6] = first.x3 + second.x3;
    x[7] = first.x3 - second.x3;
}

template <typename Vector>
[[gnu::always_inline]] inline void invertEight(Complex<Vector>* x, const Twiddle* twiddles) {
    const Quad<Vector> first{x[0] + x[1], x[2] + x[3], x[4] + x[5], x[6] + x[7]};
    const Quad<Vector> second{x[0] - x[1], x[2] - x[3], x[4] - x[5], x[6] - x[7]};
    storeQuad(inverseButterfly(rotatedBack(first, twiddles[0])), x, 2);
    storeQuad(inverseButterfly(rotatedBack(second, twiddles[1])), x + 1, 2);
}

template <typename Vector>
[[gnu::always_inline]] inline Complex<Vector> weighted(const Vector& sample, const Rotation& w) {
    return {sample * w.cosine, sample * w.sine};
}

template <typename Vector>
void transform(const float* block, float* spectrum) {
    const auto* samples = reinterpret_cast<const Vector*>(block);
    auto* x = reinterpret_cast<Complex<Vector>*>(spectrum);
    const TransformTables& tables = transformTables();
    const Rotation* weights = tables.weights;
    for (std::size_t i = 0; i < kQuarter; ++i) {
        const Quad<Vector> quad{weighted(samples[i], weights[i]),
                                weighted(samples[i + kQuarter], weights[i + kQuarter]),
                                weighted(samples[i + 2 * kQuarter], weights[i + 2 * kQuarter]),
                                weighted(samples[i + 3 * kQuarter], weights[i + 3 * kQuarter])};
        storeQuad(rotated(butterfly(quad), tables.of128[i]), x + i, kQuarter);
    }
    for (auto* part = x; part < x + kTransformSize; part += kQuarter) {
        for (std::size_t i = 0; i < kSixteenth; ++i)
            storeQuad(rotated(butterfly(loadQuad(part + i, kSixteenth)), tables.of32[i]), part + i,
                      kSixteenth);
    }
    for (auto* part = x; part < x + kTransformSize; part += kSixteenth)
        transformEight(part, tables.of8);
}

template <typename Vector>
void invert(float* spectrum) {
    auto* x = reinterpret_cast<Complex<Vector>*>(spectrum);
    const TransformTables& tables = transformTables();
    const Rotation* weights = tables.weights;
    for (auto* part = x; part < x + kTransformSize; part += kSixteenth)
        invertEight(part, tables.of8);
    for (auto* part = x; part < x + kTransformSize; part += kQuarter) {
        for (std::size_t i = 0; i < kSixteenth; ++i)
            storeQuad(inverseButterfly(rotatedBack(loadQuad(part + i, kSixteenth), tables.of32[i])),
                      part + i, kSixteenth);
    }
    for (std::size_t i = 0; i < kQuarter; ++i) {
        const auto quad = inverseButterfly(rotatedBack(loadQuad(x + i, kQuarter), tables.of128[i]));
        x[i] = timesConjugate(quad.x0, weights[i]);
        x[i + kQuarter] = timesConjugate(quad.x1, weights[i + kQuarter]);
        x[i + 2 * kQuarter] = timesConjugate(quad.x2, weights[i + 2 * kQuarter]);
        x[i + 3 * kQuarter] = timesConjugate(quad.x3, weights[i + 3 * kQuarter]);
    }
}

/// The four products are summed apart, so that no addition waits for another of the same bin.
template <typename Vector>
void multiplyAdd(const float* const* windows, const float* responses, std::size_t count,
                 const float* base, float* sum) {
    constexpr std::size_t width = sizeof(Vector) / sizeof(float);
    for (std::size_t bin = 0; bin < kTransformSize; ++bin) {
        const std::size_t place = 2 * width * bin;
        Vector realReal{}, imaginaryImaginary{}, realImaginary{}, imaginaryReal{};
        const float* response = responses + place;
        for (std::size_t p = 0; p < count; ++p, response += 2 * width * kTransformSize) {
            const auto* x = reinterpret_cast<const Complex<Vector>*>(windows[p] + place);
            const auto* h = reinterpret_cast<const Complex<Vector>*>(response);
            realReal += x->re * h->re;
            imaginaryImaginary += x->im * h->im;
            realImaginary += x->re * h->im;
            imaginaryReal += x->im * h->re;
        }
        Complex<Vector> result{realReal - imaginaryImaginary, realImaginary + imaginaryReal};
        if (base != nullptr)
            result = result + *reinterpret_cast<const Complex<Vector>*>(base + place);
        *reinterpret_cast<Complex<Vector>*>(sum + place) = result;
    }
}

template <std::size_t width>
constexpr ConvolutionKernel convolutionKernel() {
    using Vector = typename Floats<width>::Type;
    return {width, transform<Vector>, multiplyAdd<Vector>, invert<Vector>};
}

[[gnu::always_inline]] inline double sumOf(const Doubles<2>::Type& v) {
    return v[0] + v[1];
}

#ifdef __AVX__
[[gnu::always_inline]] inline double sumOf(const Doubles<4>::Type& v) {
    const Doubles<2>::Type low = __builtin_shufflevector(v, v, 0, 1);
    const Doubles<2>::Type high = __builtin_shufflevector(v, v, 2, 3);
    return sumOf(low + high);
}
#endif

#ifdef __AVX512F__
[[gnu::always_inline]] inline double sumOf(const Doubles<8>::Type& v) {
    const Doubles<4>::Type low = __builtin_shufflevector(v, v, 0, 1, 2, 3);
    const Doubles<4>::Type high = __builtin_shufflevector(v, v, 4, 5, 6, 7);
    return sumOf(low + high);
}
#endif

/// Four vectors of sections at once: their recursions are independent, and fill the time that each
/// waits for its own last result.
template <std::size_t width>
[[gnu::always_inline]] inline void addSectionVectors(const SectionArrays& sections,
                                                     std::size_t first, const double* input,
                                                     typename Doubles<width>::Type* sums,
                                                     std::size_t frames) {
    using Vector = typename Doubles<width>::Type;
    constexpr std::size_t kVectors = 4;
    const auto load = [first](const double* array, std::size_t i) {
        return *reinterpret_cast<const Vector*>(array + first + i * width);
    };
    const auto store = [first](double* array, std::size_t i, const Vector& value) {
        *reinterpret_cast<Vector*>(array + first + i * width) = value;
    };
    Vector a1[kVectors], a2[kVectors], b0[kVectors], b1[kVectors], v1[kVectors], v2[kVectors];
    for (std::size_t i = 0; i < kVectors; ++i) {
        a1[i] = load(sections.a1, i);
        a2[i] = load(sections.a2, i);
        b0[i] = load(sections.b0, i);
        b1[i] = load(sections.b1, i);
        v1[i] = load(sections.state1, i);
        v2[i] = load(sections.state2, i);
    }
    for (std::size_t n = 0; n < frames; ++n) {
        Vector sum = sums[n];
        for (std::size_t i = 0; i < kVectors; ++i) {
            const Vector v = input[n] - a2[i] * v2[i] - a1[i] * v1[i];
            sum += b0[i] * v + b1[i] * v1[i];
            v2[i] = v1[i];
            v1[i] = v;
        }
        sums[n] = sum;
    }
    for (std::size_t i = 0; i < kVectors; ++i) {
        store(sections.state1, i, v1[i]);
        store(sections.state2, i, v2[i]);
    }
}

template <std::size_t width>
void addSections(const SectionArrays& sections, const double* input, double* output,
                 std::size_t frames) {
    typename Doubles<width>::Type sums[kTransformSize];
    for (std::size_t n = 0; n < frames; ++n)
        sums[n] = typename Doubles<width>::Type{};
    for (std::size_t first = 0; first < sections.count; first += 4 * width)
        addSectionVectors<width>(sections, first, input, sums, frames);
    for (std::size_t n = 0; n < frames; ++n)
        output[n] += sumOf(sums[n]);
}

template <std::size_t width>
double dot(const double* a, const double* b, std::size_t count) {
    using Unaligned = typename Doubles<width>::Unaligned;
    typename Doubles<width>::Type even{}, odd{};
    for (std::size_t i = 0; i < count; i += 2 * width) {
        even +=
            *reinterpret_cast<const Unaligned*>(a + i) * *reinterpret_cast<const Unaligned*>(b + i);
        odd += *reinterpret_cast<const Unaligned*>(a + i + width) *
               *reinterpret_cast<const Unaligned*>(b + i + width);
    }
    return sumOf(even + odd);
}

}  // namespace
}  // namespace dsp
