#include "dsp/Signals.h"

#include <cmath>
#include <numbers>
#include <random>

Channels noise(std::size_t channels, std::size_t frames, double peak, unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> samples(-peak, peak);
    Channels result(channels, Channel(frames));
    for (Channel& channel : result) {
        for (double& sample : channel)
            sample = samples(random);
    }
    return result;
}

Channel tone(double frequency, double rate, std::size_t frames) {
    Channel samples(frames);
    for (std::size_t n = 0; n < frames; ++n)
        samples[n] = std::cos(2 * std::numbers::pi * frequency * static_cast<double>(n) / rate);
    return samples;
}

double errorLevel(const Channels& a, const Channels& b) {
    double error = 0;
    double energy = 0;
    for (std::size_t c = 0; c < b.size(); ++c) {
        for (std::size_t n = 0; n < b[c].size(); ++n) {
            error += (a[c][n] - b[c][n]) * (a[c][n] - b[c][n]);
            energy += b[c][n] * b[c][n];
        }
    }
    return 10 * std::log10(error / energy);
}

Channel delayed(const Channel& channel, std::size_t frames) {
    Channel result(channel.size());
    for (std::size_t n = frames; n < channel.size(); ++n)
        result[n] = channel[n - frames];
    return result;
}

Channels delayed(const Channels& channels, std::size_t frames) {
    Channels result;
    for (const Channel& channel : channels)
        result.push_back(delayed(channel, frames));
    return result;
}

std::vector<const double*> pointersTo(const Channels& channels, std::size_t first) {
    std::vector<const double*> pointers;
    for (const Channel& channel : channels)
        pointers.push_back(channel.data() + first);
    return pointers;
}

std::vector<double*> pointersTo(Channels* channels, std::size_t first) {
    std::vector<double*> pointers;
    for (Channel& channel : *channels)
        pointers.push_back(channel.data() + first);
    return pointers;
}
