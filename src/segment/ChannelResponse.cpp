#include "segment/ChannelResponse.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <numbers>
#include <span>

namespace segment {

namespace {

using Complex = std::complex<double>;

/// A transfer function H at one frequency, with j dH/dω, ω in radians per sample: the group delay
/// in samples is the real part of their quotient.
struct Transfer {
    Complex value;
    Complex slope;
};

Transfer operator+(const Transfer& a, const Transfer& b) {
    return {a.value + b.value, a.slope + b.slope};
}

Transfer operator/(const Transfer& a, const Transfer& b) {
    return {a.value / b.value, (a.slope * b.value - a.value * b.slope) / (b.value * b.value)};
}

/// Σ c[n] zⁿ by Horner's rule, where z is the delay by one sample.
template <typename Coefficients>
Transfer polynomial(const Coefficients& coefficients, const Complex& delay) {
    Transfer sum{};
    for (std::size_t n = coefficients.size(); n-- > 0;) {
        const double coefficient = coefficients[n];
        sum.value = sum.value * delay + coefficient;
        sum.slope = sum.slope * delay + static_cast<double>(n) * coefficient;
    }
    return sum;
}

Transfer biquadTransfer(const DiracParallelBiquad& biquad, const Complex& delay) {
    const std::array<double, 2> numerator{biquad.b0, biquad.b1};
    const std::array<double, 3> denominator{1.0, biquad.a1, biquad.a2};
    return polynomial(numerator, delay) / polynomial(denominator, delay);
}

Transfer filterTransfer(const DiracChannelFilter& channel, const Complex& delay) {
    if (channel.filterEnabled == 0)
        return {1.0, 0.0};
    const auto tapCount = std::min<std::size_t>(channel.tapCount, channel.taps.size());
    Transfer sum = polynomial(std::span(channel.taps).first(tapCount), delay);
    const auto biquadCount = std::min<std::size_t>(channel.biquadCount, channel.biquads.size());
    for (const auto& biquad : std::span(channel.biquads).first(biquadCount))
        sum = sum + biquadTransfer(biquad, delay);
    return sum;
}

/// The filter's response without the linear stage.
ResponsePoint pointOf(const Transfer& transfer, double sampleRate, double frequency) {
    const double magnitude = std::abs(transfer.value);
    if (magnitude == 0)
        return {frequency, -std::numeric_limits<double>::infinity(), 0, 0};
    const double delaySamples = (transfer.slope / transfer.value).real();
    return {frequency, 20 * std::log10(magnitude),
            std::arg(transfer.value) * 180 / std::numbers::pi, delaySamples / sampleRate * 1000};
}

/// The same angle above -180 up to 180 degrees.
double wrapped(double degrees) {
    const double angle = std::remainder(degrees, 360);
    return angle == -180 ? 180 : angle;
}

void addLinearStage(const DiracChannelFilter& channel, ResponsePoint* point) {
    if (channel.linearEnabled == 0 || std::isinf(point->magnitude))
        return;
    point->magnitude += channel.gain;
    point->phase -= 360 * point->frequency * channel.delay / 1000;
    point->groupDelay += channel.delay;
}

}  // namespace

double groupSampleRate(std::size_t group) {
    return group == 0 ? 48000 : 44100;
}

std::vector<double> logSpacedFrequencies(double first, double last, std::size_t count) {
    std::vector<double> frequencies(count);
    const auto steps = static_cast<double>(count - 1);
    for (std::size_t i = 0; i < count; ++i)
        frequencies[i] = first * std::pow(last / first, static_cast<double>(i) / steps);
    frequencies.back() = last;
    return frequencies;
}

ResponsePoint channelResponse(const DiracChannelFilter& channel, double sampleRate,
                              double frequency) {
    const Complex delay = std::polar(1.0, -2 * std::numbers::pi * frequency / sampleRate);
    ResponsePoint point = pointOf(filterTransfer(channel, delay), sampleRate, frequency);
    addLinearStage(channel, &point);
    point.phase = wrapped(point.phase);
    return point;
}

}  // namespace segment
