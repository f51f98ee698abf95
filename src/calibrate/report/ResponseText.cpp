#include "calibrate/report/ResponseText.h"

#include "calibrate/Text.h"
#include "calibrate/design/LogGrid.h"
#include "calibrate/measurement/Arrival.h"
#include "calibrate/measurement/Fft.h"

#include <cmath>
#include <complex>
#include <functional>
#include <numbers>

namespace calibrate::report {
namespace {

constexpr double kLowest = 10;       // Hz
constexpr double kHighest = 22'000;  // Hz
constexpr double kPointsPerOctave = 48;

std::string heading(const std::string& title) {
    return "* " + printable(title) + "\n";
}

std::string level(double power) {
    return fixed(10 * std::log10(std::max(power, 1e-30)), 3);
}

std::string levelAndPhase(std::complex<double> value) {
    return level(std::norm(value)) + " " + fixed(std::arg(value) * 180 / std::numbers::pi, 2);
}

std::string rows(double highest, const std::function<std::string(double)>& columns) {
    std::string text;
    const design::LogGrid grid(kLowest, kHighest, kPointsPerOctave);
    for (const double frequency : grid.frequencies())
        if (frequency < highest)
            text += fixed(frequency, 3) + " " + columns(frequency) + "\n";
    return text;
}

const std::string kThreeColumns = "* Frequency (Hz)  Level (dB)  Phase (degrees)\n";

/// Several bins a hertz, so that the nearest one is the frequency's.
constexpr double kBinsPerHertz = 8;

}  // namespace

std::string responseText(const measurement::ImpulseResponse& response, const std::string& title) {
    const double arrival = measurement::findArrival(response).time;
    const auto size = measurement::fftSize(std::max(
        response.samples.size(), static_cast<std::size_t>(kBinsPerHertz * response.sampleRate)));
    const auto spectrum = measurement::forwardFft(response.samples, size);
    const auto bin = [&](double frequency) {
        const double position = frequency * static_cast<double>(size) / response.sampleRate;
        const auto nearest = static_cast<std::size_t>(std::lround(position));
        const double exact =
            static_cast<double>(nearest) * response.sampleRate / static_cast<double>(size);
        const double angle = 2 * std::numbers::pi * exact * (arrival - response.start);
        return spectrum[nearest] * std::polar(1.0, angle);
    };
    return heading(title) + "* Sample rate " + hertz(response.sampleRate) +
           "; the phase counts from the direct sound's arrival at " + fixed(1000 * arrival, 3) +
           " ms; not smoothed\n" + kThreeColumns +
           rows(response.sampleRate / 2,
                [&](double frequency) { return levelAndPhase(bin(frequency)); });
}

std::string responseText(const measurement::FrequencyCurve& curve, const std::string& title) {
    return heading(title) + "* Frequency (Hz)  Level (dB)\n" +
           rows(1e9, [&](double frequency) { return fixed(curve.level(frequency), 3); });
}

}  // namespace calibrate::report
