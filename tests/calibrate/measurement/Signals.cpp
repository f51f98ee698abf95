#include "calibrate/measurement/Signals.h"

#include "calibrate/measurement/Fft.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

using calibrate::measurement::ImpulseResponse;

std::vector<double> whiteNoise(std::size_t length, double rms, unsigned seed) {
    std::mt19937 random(seed);
    std::normal_distribution<double> gauss(0, rms);
    std::vector<double> samples(length);
    std::ranges::generate(samples, [&] { return gauss(random); });
    return samples;
}

std::vector<double> smallRoom(std::size_t length, std::size_t delay, double level, unsigned seed) {
    auto samples = whiteNoise(length, 0.1 * level, seed);
    for (std::size_t i = 0; i < length; ++i) {
        const double time = static_cast<double>(i) - static_cast<double>(delay) - 20;
        samples[i] *= time < 0 ? 0 : std::exp(-time / (0.03 * 48'000));
    }
    samples[delay] = level;
    return samples;
}

double rms(const std::vector<double>& samples) {
    double sum = 0;
    for (const double sample : samples)
        sum += sample * sample;
    return std::sqrt(sum / static_cast<double>(samples.size()));
}

std::vector<double> heard(const std::vector<float>& played, const std::vector<double>& room,
                          double noiseDb, unsigned seed) {
    const std::vector<double> wide(played.begin(), played.end());
    auto sound = calibrate::measurement::convolve(wide, room);
    const auto noise = whiteNoise(sound.size(), rms(sound) * std::pow(10.0, noiseDb / 20), seed);
    std::ranges::transform(sound, noise, sound.begin(), std::plus<>());
    return sound;
}

double errorBetween(const ImpulseResponse& truth, const ImpulseResponse& measured, double from,
                    double to) {
    namespace ms = calibrate::measurement;
    const auto size = ms::fftSize(2 * std::max(truth.samples.size(), measured.samples.size()));
    const auto a = ms::forwardFft(truth.samples, size);
    const auto b = ms::forwardFft(measured.samples, size);
    double error = 0;
    double energy = 0;
    for (std::size_t bin = 0; bin < a.size(); ++bin) {
        const double frequency =
            static_cast<double>(bin) * truth.sampleRate / static_cast<double>(size);
        if (frequency < from || frequency > to)
            continue;
        const auto turn =
            std::polar(1.0, -2 * std::numbers::pi * frequency * (measured.start - truth.start));
        error += std::norm(a[bin] - b[bin] * turn);
        energy += std::norm(a[bin]);
    }
    return 10 * std::log10(error / energy);
}
