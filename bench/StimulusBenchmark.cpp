// Making stimuli and preparing them for the player, chunk by chunk. In this process: neither takes
// part in anything else.

#include "Percentiles.h"
#include "modules/dirac/StimulusGenerators.h"
#include "modules/dirac/StimulusPcm.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <vector>

namespace {

constexpr std::size_t kChunk = 8192;  // samples
constexpr double kRate = 48000.0;
constexpr unsigned kSweepLength = 240'000;  // samples
constexpr unsigned kNoiseLength = 262'144;  // samples

/// One chunk to one of `channels` channels, with a gain. The floor: a buffer of the same size is
/// filled, and copied.
void renderChunk(benchmark::State& state) {
    const auto channels = static_cast<int>(state.range(0));
    std::vector<std::int32_t> samples(kChunk);
    for (std::size_t i = 0; i < kChunk; ++i)
        samples[i] = static_cast<std::int32_t>(i * 2'654'435'761U);
    std::vector<std::int32_t> scaled;
    const std::size_t size = kChunk * sizeof(std::int32_t);
    const auto outputSize = static_cast<int>(size) * channels;
    QByteArray copy(outputSize, '\0');
    compare(
        state,
        [&] {
            return timed([&] {
                applyGain(samples, 0.5F, scaled);
                const QByteArray frames = monoToSpecificChannel(
                    reinterpret_cast<const char*>(scaled.data()), size, channels / 2, channels);
                benchmark::DoNotOptimize(frames.constData());
            });
        },
        [&] {
            return timed([&] {
                const QByteArray filled(outputSize, '\0');
                benchmark::DoNotOptimize(filled.constData());
                std::memcpy(copy.data(), filled.constData(), static_cast<std::size_t>(outputSize));
                benchmark::DoNotOptimize(copy.constData());
            });
        });
}

/// The floor: the sine and the exponential of each sample.
void generateSweep(benchmark::State& state) {
    compare(
        state,
        [] {
            return timed([] {
                benchmark::DoNotOptimize(
                    generateLogSweep(10.0, 24000.0, kSweepLength, 24'000, 1, kRate, 300.0));
            });
        },
        [] {
            return timed([] {
                const double rate = std::log(2400.0) / (kSweepLength - 1);
                for (unsigned i = 0; i < kSweepLength; ++i) {
                    double phase = std::exp(rate * i) - 1.0;
                    benchmark::DoNotOptimize(phase = 40.0 * phase);
                    benchmark::DoNotOptimize(std::sin(phase));
                }
            });
        });
}

/// The floor: the two random steps and the sine of each sample.
void generateNoise(benchmark::State& state) {
    compare(
        state,
        [] {
            return timed([] { benchmark::DoNotOptimize(generatePinkNoise(kRate, kNoiseLength)); });
        },
        [] {
            return timed([] {
                std::uint32_t random = 1;
                for (unsigned i = 0; i < kNoiseLength; ++i) {
                    benchmark::DoNotOptimize(random = random * 196'314'165U + 907'633'515U);
                    benchmark::DoNotOptimize(random = random * 196'314'165U + 907'633'515U);
                    benchmark::DoNotOptimize(std::sin(static_cast<float>(random >> 9U) * 1.19e-7F));
                }
            });
        });
}

}  // namespace

BENCHMARK(renderChunk)
    ->Name("render")
    ->Arg(1)
    ->Arg(2)
    ->Arg(8)
    ->Arg(32)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->Iterations(3000);
BENCHMARK(generateSweep)
    ->Name("sweep")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(60);
BENCHMARK(generateNoise)
    ->Name("noise")
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(60);

BENCHMARK_MAIN();
