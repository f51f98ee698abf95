#include "roomsim/Signals.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

Signal randomSignal(std::size_t length, unsigned int seed) {
    std::mt19937 generator(seed);
    Signal signal(length);
    for (float& sample : signal)
        sample = static_cast<float>(static_cast<double>(generator()) / 4294967296.0 - 0.5);
    return signal;
}

Signal randomResponse(std::size_t length, unsigned int seed) {
    Signal response = randomSignal(length, seed);
    for (std::size_t i = 0; i < length; ++i) {
        const double age = static_cast<double>(i) / static_cast<double>(length);
        response[i] *= static_cast<float>(0.2 * std::pow(10.0, -3.0 * age));
    }
    return response;
}

Signal impulse(std::size_t length, std::size_t place, float height) {
    Signal signal(length);
    signal[place] = height;
    return signal;
}

Signal sine(std::size_t length, double cyclesPerSample, double phase) {
    Signal signal(length);
    for (std::size_t i = 0; i < length; ++i) {
        const double angle = cyclesPerSample * static_cast<double>(i) + phase;
        signal[i] = static_cast<float>(0.5 * std::sin(2.0 * std::numbers::pi * angle));
    }
    return signal;
}

Signal convolvedDirectly(const Signals& inputs, const Signals& responses, std::size_t length) {
    std::vector<double> sum(length);
    for (std::size_t k = 0; k < inputs.size(); ++k) {
        for (std::size_t i = 0; i < std::min(inputs[k].size(), length); ++i) {
            const std::size_t taps = std::min(responses[k].size(), length - i);
            for (std::size_t tap = 0; tap < taps; ++tap)
                sum[i + tap] +=
                    static_cast<double>(inputs[k][i]) * static_cast<double>(responses[k][tap]);
        }
    }
    return {sum.begin(), sum.end()};
}

Signal delayed(const Signal& signal, std::size_t delay, std::size_t length) {
    Signal result(delay);
    result.insert(result.end(), signal.begin(), signal.end());
    result.resize(length);
    return result;
}

double worstErrorDb(const Signal& actual, const Signal& expected) {
    if (actual.size() != expected.size())
        return std::numeric_limits<double>::infinity();
    double error = 0.0;
    double peak = 0.0;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const auto want = static_cast<double>(expected[i]);
        error = std::max(error, std::abs(static_cast<double>(actual[i]) - want));
        peak = std::max(peak, std::abs(want));
    }
    return 20.0 * std::log10(error / peak);
}

double rmsDb(const Signal& signal) {
    double sum = 0.0;
    for (const float sample : signal)
        sum += static_cast<double>(sample) * static_cast<double>(sample);
    return 10.0 * std::log10(sum / static_cast<double>(signal.size()));
}
