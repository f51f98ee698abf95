// Judges filters of any origin on measured responses, for scripts/compare-with-drc.
//
//   compare_filters extract RESPONSES.wav CHANNEL OUT.f32
//   compare_filters judge RESPONSES.wav CHANNEL FILTER.wav|FILTER.f32|-

#include "calibrate/design/Deviation.h"
#include "calibrate/measurement/Arrival.h"
#include "calibrate/measurement/Fft.h"
#include "calibrate/measurement/SoundFile.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>

using namespace calibrate;

namespace {

constexpr double kGuard = 0.001;  // s before the largest sample that do not count as ringing

std::vector<double> readRaw(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::vector<double> samples;
    float sample = 0;
    while (file.read(reinterpret_cast<char*>(&sample), sizeof sample))
        samples.push_back(static_cast<double>(sample));
    return samples;
}

std::vector<double> readFilter(const std::string& path) {
    if (path == "-")
        return {1};
    return path.ends_with(".f32") ? readRaw(path)
                                  : measurement::readSoundFile(path).channels.front();
}

/// Energy before the largest sample, dB of all.
double preRinging(const std::vector<double>& samples, double rate) {
    const auto peak =
        std::ranges::max_element(samples, {}, [](double sample) { return std::abs(sample); });
    const auto guard = static_cast<std::ptrdiff_t>(kGuard * rate);
    double before = 0;
    double all = 1e-300;
    for (auto sample = samples.begin(); sample != samples.end(); ++sample) {
        all += *sample * *sample;
        before += sample < peak - guard ? *sample * *sample : 0;
    }
    return 10 * std::log10(std::max(before / all, 1e-20));
}

/// The response without what was recorded before the direct sound.
std::vector<double> fromArrival(const measurement::ImpulseResponse& response) {
    const double arrival = measurement::findArrival(response).time - kGuard / 2;
    const auto start = std::max(std::lround(arrival * response.sampleRate), 0L);
    return {response.samples.begin() + start, response.samples.end()};
}

double largestGain(const std::vector<double>& filter) {
    double largest = 0;
    for (const auto& bin : measurement::forwardFft(filter, measurement::fftSize(2 * filter.size())))
        largest = std::max(largest, std::norm(bin));
    return 10 * std::log10(largest);
}

void extract(const measurement::ImpulseResponse& response, const std::string& path) {
    std::ofstream file(path, std::ios::binary);
    for (const double sample : response.samples) {
        const auto narrow = static_cast<float>(sample);
        file.write(reinterpret_cast<const char*>(&narrow), sizeof narrow);
    }
}

void judge(const measurement::ImpulseResponse& response, const std::vector<double>& filter) {
    const double rate = response.sampleRate;
    const auto corrected = measurement::convolve(response.samples, filter);
    const auto clean = measurement::convolve(fromArrival(response), filter);
    const measurement::PowerSpectrum spectrum(corrected, rate);
    std::printf("%.3f %.1f %.1f %.1f %d\n", design::deviation(spectrum, {}),
                preRinging(corrected, rate), preRinging(clean, rate), largestGain(filter),
                static_cast<int>(rate));
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 5) {
        std::cerr << "compare_filters extract|judge RESPONSES.wav CHANNEL FILE\n";
        return 2;
    }
    try {
        const auto responses =
            measurement::impulseResponses(measurement::readSoundFile(arguments[2]));
        const auto& response = responses.at(std::stoul(arguments[3]));
        if (std::string(arguments[1]) == "extract")
            extract(response, arguments[4]);
        else
            judge(response, readFilter(arguments[4]));
    } catch (const std::exception& error) {
        std::cerr << "compare_filters: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
