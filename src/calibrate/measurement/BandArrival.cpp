#include "calibrate/measurement/BandArrival.h"

#include "calibrate/measurement/Fft.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace calibrate::measurement {
namespace {

constexpr double kStandsOut = 10;  // times the envelope's root mean square
constexpr double kArrived = 0.5;   // of the envelope's largest value

/// A raised cosine over two octaves around `middle` on a logarithmic axis.
double bandWeight(double frequency, double middle) {
    const double octaves = std::abs(std::log2(frequency / middle));
    return octaves < 1 ? 0.5 + 0.5 * std::cos(std::numbers::pi * octaves) : 0;
}

/// The square of the octave's envelope: the signal's and its Hilbert transform's powers together.
std::vector<double> squaredEnvelope(const Spectrum& spectrum, double binWidth, double middle,
                                    std::size_t size) {
    Spectrum band(spectrum.size());
    Spectrum turned(spectrum.size());
    for (std::size_t bin = 1; bin + 1 < spectrum.size(); ++bin) {
        band[bin] = spectrum[bin] * bandWeight(static_cast<double>(bin) * binWidth, middle);
        turned[bin] = band[bin] * std::complex<double>(0, -1);
    }
    auto envelope = inverseFft(band, size);
    const auto quadrature = inverseFft(turned, size);
    std::ranges::transform(envelope, quadrature, envelope.begin(),
                           [](double a, double b) { return a * a + b * b; });
    return envelope;
}

}  // namespace

std::vector<BandArrival> bandArrivals(const ImpulseResponse& response) {
    const std::size_t size = fftSize(2 * response.samples.size());
    const auto spectrum = forwardFft(response.samples, size);
    const double binWidth = response.sampleRate / static_cast<double>(size);
    std::vector<BandArrival> arrivals;
    for (double middle = 500; middle <= 8'000 && 2 * middle < 0.45 * response.sampleRate;
         middle *= 2) {
        auto envelope = squaredEnvelope(spectrum, binWidth, middle, size);
        envelope.resize(response.samples.size());
        const double largest = std::ranges::max(envelope);
        double mean = 0;
        for (const double value : envelope)
            mean += value / static_cast<double>(envelope.size());
        if (largest < kStandsOut * kStandsOut * mean)
            continue;
        const auto first = std::ranges::find_if(
            envelope, [&](double value) { return value >= kArrived * kArrived * largest; });
        const auto sample = static_cast<double>(first - envelope.begin());
        arrivals.push_back({middle, response.start + sample / response.sampleRate});
    }
    return arrivals;
}

}  // namespace calibrate::measurement
