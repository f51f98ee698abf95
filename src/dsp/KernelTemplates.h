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

/// Where bins lie: so many of them side by side that they fill the widest register, first all real
/// parts and then all imaginary ones. `stride` is the way from one such group to the next, in
/// floats.
template <typename Vector, std::size_t together>
struct Bins {
    static constexpr std::size_t kWidth = sizeof(Vector) / sizeof(float);

    [[gnu::always_inline]] inline Vector* at(std::size_t bin) const {
        return reinterpret_cast<Vector*>(floats + bin / together * stride +
                                         bin % together * kWidth);
    }
    [[gnu::always_inline]] inline Complex<Vector> load(std::size_t bin) const {
        return {*at(bin), at(bin)[together]};
    }
    [[gnu::always_inline]] inline void store(std::size_t bin, const Complex<Vector>& value) const {
        *at(bin) = value.re;
        at(bin)[together] = value.im;
    }

    float* floats;
    std::size_t stride;
};

/// Eight points: two transforms of four, then four of two.
template <typename Vector, typename To>
[[gnu::always_inline]] inline void transformEight(const Complex<Vector>* x, const Twiddle* twiddles,
                                                  const To& to, std::size_t bin) {
    const auto first = rotated(butterfly(loadQuad(x, 2)), twiddles[0]);
    const auto second = rotated(butterfly(loadQuad(x + 1, 2)), twiddles[1]);
    to.store(bin, first.x0 + second.x0);
    to.store(bin + 1, first.x0 - second.x0);
    to.store(bin + 2, first.x1 + second.x1);
    to.store(bin + 3, first.x1 - second.x1);
    to.store(bin + 4, first.x2 + second.x2);
    to.store(bin + 5, first.x2 - second.x2);
    to.store(bin + 6, first.x3 + second.x3);
    to.store(bin + 7, first.x3 - second.x3);
}

/// In place, whatever the order of the bins: all eight are read first.
template <typename Vector, typename From>
[[gnu::always_inline]] inline void invertEight(const From& from, std::size_t bin,
                                               const Twiddle* twiddles, Complex<Vector>* x) {
    Complex<Vector> bins[8];
    for (std::size_t i = 0; i < 8; ++i)
        bins[i] = from.load(bin + i);
    const Quad<Vector> first{bins[0] + bins[1], bins[2] + bins[3], bins[4] + bins[5],
                             bins[6] + bins[7]};
    const Quad<Vector> second{bins[0] - bins[1], bins[2] - bins[3], bins[4] - bins[5],
                              bins[6] - bins[7]};
    storeQuad(inverseButterfly(rotatedBack(first, twiddles[0])), x, 2);
    storeQuad(inverseButterfly(rotatedBack(second, twiddles[1])), x + 1, 2);
}

template <typename Vector>
[[gnu::always_inline]] inline Complex<Vector> weighted(const Vector& sample, const Rotation& w) {
    return {sample * w.cosine, sample * w.sine};
}

template <typename Vector, std::size_t together>
void transform(const float* block, float* scratch, float* bins, std::size_t stride) {
    const auto* samples = reinterpret_cast<const Vector*>(block);
    auto* x = reinterpret_cast<Complex<Vector>*>(scratch);
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
    const Bins<Vector, together> to{bins, stride};
    for (std::size_t i = 0; i < kTransformSize; i += kSixteenth)
        transformEight(x + i, tables.of8, to, i);
}

/// Real parts to the output, imaginary ones to what overlaps with the next block.
template <typename Vector>
[[gnu::always_inline]] inline void part(const Complex<Vector>& value, const Rotation& weight,
                                        const Vector& overlap, Vector* output, Vector* next) {
    const auto sample = timesConjugate(value, weight);
    *output = sample.re + overlap;
    *next = sample.im;
}

template <typename Vector, std::size_t together>
void invert(float* spectrum, const float* overlap, float* output, float* next) {
    auto* x = reinterpret_cast<Complex<Vector>*>(spectrum);
    const auto* over = reinterpret_cast<const Vector*>(overlap);
    auto* out = reinterpret_cast<Vector*>(output);
    auto* later = reinterpret_cast<Vector*>(next);
    const Bins<Vector, together> from{spectrum, 2 * together * Bins<Vector, together>::kWidth};
    const TransformTables& tables = transformTables();
    const Rotation* weights = tables.weights;
    for (std::size_t i = 0; i < kTransformSize; i += kSixteenth)
        invertEight(from, i, tables.of8, x + i);
    for (auto* part32 = x; part32 < x + kTransformSize; part32 += kQuarter) {
        for (std::size_t i = 0; i < kSixteenth; ++i)
            storeQuad(
                inverseButterfly(rotatedBack(loadQuad(part32 + i, kSixteenth), tables.of32[i])),
                part32 + i, kSixteenth);
    }
    for (std::size_t i = 0; i < kQuarter; ++i) {
        const auto quad = inverseButterfly(rotatedBack(loadQuad(x + i, kQuarter), tables.of128[i]));
        const Complex<Vector> parts[4] = {quad.x0, quad.x1, quad.x2, quad.x3};
        for (std::size_t q = 0; q < 4; ++q) {
            const std::size_t n = i + q * kQuarter;
            part(parts[q], weights[n], over[n], out + n, later + n);
        }
    }
}

/// The four products are summed apart, so that no addition waits for another of the same bin.
/// `groups` of bins fill one register each.
template <typename Vector, std::size_t groups>
void multiplyAdd(const float* windows, const float* responses, std::size_t count, float* sum) {
    const auto* x = reinterpret_cast<const Complex<Vector>*>(windows);
    const auto* h = reinterpret_cast<const Complex<Vector>*>(responses);
    auto* result = reinterpret_cast<Complex<Vector>*>(sum);
    for (std::size_t group = 0; group < groups; ++group, x += count, h += 2 * count) {
        Vector realReal{}, imaginaryImaginary{}, realImaginary{}, imaginaryReal{};
        for (std::size_t p = 0; p < count; ++p) {
            realReal += x[p].re * h[p].re;
            imaginaryImaginary += x[p].im * h[p].im;
            realImaginary += x[p].re * h[p].im;
            imaginaryReal += x[p].im * h[p].re;
        }
        result[group] = {realReal - imaginaryImaginary, realImaginary + imaginaryReal};
    }
}

// Channels that lie apart come side by side, and back, in squares of four by four.

using Four = Floats<4>::Type;

[[gnu::always_inline]] inline void transpose(Four* rows) {
    const Four a = __builtin_shufflevector(rows[0], rows[1], 0, 4, 1, 5);
    const Four b = __builtin_shufflevector(rows[2], rows[3], 0, 4, 1, 5);
    const Four c = __builtin_shufflevector(rows[0], rows[1], 2, 6, 3, 7);
    const Four d = __builtin_shufflevector(rows[2], rows[3], 2, 6, 3, 7);
    rows[0] = __builtin_shufflevector(a, b, 0, 1, 4, 5);
    rows[1] = __builtin_shufflevector(a, b, 2, 3, 6, 7);
    rows[2] = __builtin_shufflevector(c, d, 0, 1, 4, 5);
    rows[3] = __builtin_shufflevector(c, d, 2, 3, 6, 7);
}

/// Four channels; `to` is the first one's place in the first frame.
template <std::size_t width>
void interleaveFour(const double* const* channels, std::size_t frames, float* to) {
    std::size_t n = 0;
    for (; n + 4 <= frames; n += 4) {
        Four rows[4];
        for (std::size_t c = 0; c < 4; ++c) {
            for (std::size_t i = 0; i < 4; ++i)
                rows[c][i] = static_cast<float>(channels[c][n + i]);
        }
        transpose(rows);
        for (std::size_t i = 0; i < 4; ++i)
            *reinterpret_cast<Four*>(to + (n + i) * width) = rows[i];
    }
    for (; n < frames; ++n) {
        for (std::size_t c = 0; c < 4; ++c)
            to[n * width + c] = static_cast<float>(channels[c][n]);
    }
}

template <std::size_t width>
void separateFour(const float* from, std::size_t frames, double* const* channels) {
    std::size_t n = 0;
    for (; n + 4 <= frames; n += 4) {
        Four rows[4];
        for (std::size_t i = 0; i < 4; ++i)
            rows[i] = *reinterpret_cast<const Four*>(from + (n + i) * width);
        transpose(rows);
        for (std::size_t c = 0; c < 4; ++c) {
            for (std::size_t i = 0; i < 4; ++i)
                channels[c][n + i] = static_cast<double>(rows[c][i]);
        }
    }
    for (; n < frames; ++n) {
        for (std::size_t c = 0; c < 4; ++c)
            channels[c][n] = static_cast<double>(from[n * width + c]);
    }
}

template <std::size_t width>
void interleave(const double* const* channels, std::size_t count, std::size_t frames, float* to) {
    for (std::size_t c = 0; c < count; c += 4) {
        // Beyond the last channel it is taken again: a lane without a response stays silent.
        const double* four[4];
        for (std::size_t i = 0; i < 4; ++i)
            four[i] = channels[c + i < count ? c + i : count - 1];
        interleaveFour<width>(four, frames, to + c);
    }
}

template <std::size_t width>
void separate(const float* from, std::size_t frames, std::size_t count, double* const* channels) {
    double nobodys[kTransformSize];
    for (std::size_t c = 0; c < count; c += 4) {
        double* four[4];
        for (std::size_t i = 0; i < 4; ++i)
            four[i] = c + i < count ? channels[c + i] : nobodys;
        separateFour<width>(from + c, frames, four);
    }
}

/// `widest` is how many floats a register holds.
template <std::size_t width, std::size_t widest>
constexpr ConvolutionKernel convolutionKernel() {
    using Vector = typename Floats<width>::Type;
    using Register = typename Floats<widest>::Type;
    constexpr std::size_t together = widest / width;
    constexpr std::size_t groups = kTransformSize / together;
    return {width,
            groups,
            interleave<width>,
            separate<width>,
            transform<Vector, together>,
            multiplyAdd<Register, groups>,
            invert<Vector, together>};
}

[[gnu::always_inline]] inline double sumOf(const Doubles<2>::Type& v) {
    return v[0] + v[1];
}

/// The sum of each vector's elements.
[[gnu::always_inline]] inline Doubles<2>::Type sumsOf(const Doubles<2>::Type* v) {
    return __builtin_shufflevector(v[0], v[1], 0, 2) + __builtin_shufflevector(v[0], v[1], 1, 3);
}

#ifdef __AVX__
[[gnu::always_inline]] inline double sumOf(const Doubles<4>::Type& v) {
    const Doubles<2>::Type low = __builtin_shufflevector(v, v, 0, 1);
    const Doubles<2>::Type high = __builtin_shufflevector(v, v, 2, 3);
    return sumOf(low + high);
}

[[gnu::always_inline]] inline Doubles<4>::Type pairSums(const Doubles<4>::Type& a,
                                                        const Doubles<4>::Type& b) {
    return __builtin_shufflevector(a, b, 0, 4, 2, 6) + __builtin_shufflevector(a, b, 1, 5, 3, 7);
}

[[gnu::always_inline]] inline Doubles<4>::Type sumsOf(const Doubles<4>::Type* v) {
    const auto low = pairSums(v[0], v[1]);
    const auto high = pairSums(v[2], v[3]);
    return __builtin_shufflevector(low, high, 0, 1, 4, 5) +
           __builtin_shufflevector(low, high, 2, 3, 6, 7);
}
#endif

#ifdef __AVX512F__
[[gnu::always_inline]] inline double sumOf(const Doubles<8>::Type& v) {
    const Doubles<4>::Type low = __builtin_shufflevector(v, v, 0, 1, 2, 3);
    const Doubles<4>::Type high = __builtin_shufflevector(v, v, 4, 5, 6, 7);
    return sumOf(low + high);
}

[[gnu::always_inline]] inline Doubles<8>::Type pairSums(const Doubles<8>::Type& a,
                                                        const Doubles<8>::Type& b) {
    return __builtin_shufflevector(a, b, 0, 8, 2, 10, 4, 12, 6, 14) +
           __builtin_shufflevector(a, b, 1, 9, 3, 11, 5, 13, 7, 15);
}

[[gnu::always_inline]] inline Doubles<8>::Type quadSums(const Doubles<8>::Type* v) {
    const auto low = pairSums(v[0], v[1]);
    const auto high = pairSums(v[2], v[3]);
    return __builtin_shufflevector(low, high, 0, 1, 8, 9, 4, 5, 12, 13) +
           __builtin_shufflevector(low, high, 2, 3, 10, 11, 6, 7, 14, 15);
}

[[gnu::always_inline]] inline Doubles<8>::Type sumsOf(const Doubles<8>::Type* v) {
    const auto low = quadSums(v);
    const auto high = quadSums(v + 4);
    return __builtin_shufflevector(low, high, 0, 1, 2, 3, 8, 9, 10, 11) +
           __builtin_shufflevector(low, high, 4, 5, 6, 7, 12, 13, 14, 15);
}
#endif

constexpr std::size_t kVectors = 4;

/// Four vectors of sections: their recursions are independent, and fill the time that each waits
/// for its own last result.
template <typename Vector>
struct Sections {
    Vector a1[kVectors], a2[kVectors], b0[kVectors], b1[kVectors];

    /// One sample. `newest` becomes the newest state: the two states take turns.
    [[gnu::always_inline]] inline Vector step(double sample, const Vector* last, Vector* newest,
                                              Vector sum) const {
        for (std::size_t i = 0; i < kVectors; ++i) {
            newest[i] = sample - a2[i] * newest[i] - a1[i] * last[i];
            sum = sum + b0[i] * newest[i] + b1[i] * last[i];
        }
        return sum;
    }
};

template <std::size_t width, bool isFirst>
[[gnu::always_inline]] inline void addSectionVectors(const SectionArrays& arrays, std::size_t first,
                                                     const double* input,
                                                     typename Doubles<width>::Type* sums,
                                                     std::size_t frames) {
    using Vector = typename Doubles<width>::Type;
    const auto load = [first](const double* array, std::size_t i) {
        return *reinterpret_cast<const Vector*>(array + first + i * width);
    };
    const auto store = [first](double* array, std::size_t i, const Vector& value) {
        *reinterpret_cast<Vector*>(array + first + i * width) = value;
    };
    Sections<Vector> sections;
    Vector v1[kVectors], v2[kVectors];
    for (std::size_t i = 0; i < kVectors; ++i) {
        sections.a1[i] = load(arrays.a1, i);
        sections.a2[i] = load(arrays.a2, i);
        sections.b0[i] = load(arrays.b0, i);
        sections.b1[i] = load(arrays.b1, i);
        v1[i] = load(arrays.state1, i);
        v2[i] = load(arrays.state2, i);
    }
    std::size_t n = 0;
    for (; n + 1 < frames; n += 2) {
        sums[n] = sections.step(input[n], v1, v2, isFirst ? Vector{} : sums[n]);
        sums[n + 1] = sections.step(input[n + 1], v2, v1, isFirst ? Vector{} : sums[n + 1]);
    }
    const bool isOdd = n < frames;
    if (isOdd)
        sums[n] = sections.step(input[n], v1, v2, isFirst ? Vector{} : sums[n]);
    for (std::size_t i = 0; i < kVectors; ++i) {
        store(arrays.state1, i, isOdd ? v2[i] : v1[i]);
        store(arrays.state2, i, isOdd ? v1[i] : v2[i]);
    }
}

template <std::size_t width>
void addSections(const SectionArrays& sections, const double* input, double* output,
                 std::size_t frames) {
    if (sections.count == 0)
        return;
    typename Doubles<width>::Type sums[kTransformSize];
    addSectionVectors<width, true>(sections, 0, input, sums, frames);
    for (std::size_t first = kVectors * width; first < sections.count; first += kVectors * width)
        addSectionVectors<width, false>(sections, first, input, sums, frames);
    std::size_t n = 0;
    for (; n + width <= frames; n += width)
        *reinterpret_cast<typename Doubles<width>::Unaligned*>(output + n) += sumsOf(sums + n);
    for (; n < frames; ++n)
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
