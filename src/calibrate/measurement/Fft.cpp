#include "calibrate/measurement/Fft.h"

#include <unsupported/Eigen/FFT>

#include <algorithm>
#include <bit>

namespace calibrate::measurement {
namespace {

using Transform = Eigen::FFT<double>;

/// One for each thread: it keeps the factors of every size that it has seen, whose sines and
/// cosines take as long as a transform.
Transform& halfSpectrumTransform() {
    thread_local Transform transform(Transform::impl_type(), Transform::HalfSpectrum);
    return transform;
}

}  // namespace

std::size_t fftSize(std::size_t least) {
    return std::bit_ceil(std::max<std::size_t>(least, 4));
}

Spectrum forwardFft(std::span<const double> samples, std::size_t size) {
    std::vector<double> padded(samples.begin(), samples.end());
    padded.resize(size);
    Spectrum spectrum;
    halfSpectrumTransform().fwd(spectrum, padded);
    return spectrum;
}

std::vector<double> inverseFft(const Spectrum& spectrum, std::size_t size) {
    std::vector<double> samples(size);
    halfSpectrumTransform().inv(samples.data(), spectrum.data(), static_cast<Eigen::Index>(size));
    return samples;
}

std::vector<double> convolve(std::span<const double> a, std::span<const double> b) {
    const std::size_t length = a.size() + b.size() - 1;
    const std::size_t size = fftSize(length);
    Spectrum product = forwardFft(a, size);
    const Spectrum other = forwardFft(b, size);
    std::transform(product.begin(), product.end(), other.begin(), product.begin(),
                   std::multiplies<>());
    auto samples = inverseFft(product, size);
    samples.resize(length);
    return samples;
}

}  // namespace calibrate::measurement
