// The whole design of one speaker, for both sample rates of a device. In this process: nothing else
// takes part in it.

#include "Percentiles.h"
#include "calibrate/design/SystemDesign.h"
#include "calibrate/measurement/Fft.h"
#include "calibrate/measurement/MinimumPhaseSpectrum.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <random>

namespace {

using calibrate::measurement::ImpulseResponse;

constexpr double kRate = 48'000;
constexpr std::size_t kTransform = 65'536;  // what a design works with

/// A second of a room: a direct sound, then noise that dies away.
ImpulseResponse room() {
    std::mt19937 random(1);
    std::normal_distribution<double> noise;
    ImpulseResponse response{kRate, std::vector<double>(static_cast<std::size_t>(kRate)), 0};
    for (std::size_t i = 500; i < response.samples.size(); ++i)
        response.samples[i] = 0.02 * noise(random) * std::exp(-static_cast<double>(i) / 3'000);
    response.samples[480] = 0.5;
    return response;
}

/// What no design can do without: the response's spectrum, and for each sample rate a minimum-phase
/// response of a curve.
void transformOnce(const ImpulseResponse& response) {
    using namespace calibrate::measurement;
    benchmark::DoNotOptimize(forwardFft(response.samples, kTransform));
    for (int rate = 0; rate < 2; ++rate) {
        const auto spectrum = minimumPhaseSpectrum(std::vector<double>(kTransform / 2 + 1, 1.0));
        benchmark::DoNotOptimize(inverseFft(spectrum, kTransform));
    }
}

void designSpeaker(benchmark::State& state) {
    const ImpulseResponse response = room();
    compare(
        state,
        [&] {
            return timed([&] {
                benchmark::DoNotOptimize(
                    calibrate::design::designSystem({{"speaker", false, 0, {response}}}, {}));
            });
        },
        [&] { return timed([&] { transformOnce(response); }); });
}

}  // namespace

BENCHMARK(designSpeaker)
    ->Name("design")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(10);

BENCHMARK_MAIN();
