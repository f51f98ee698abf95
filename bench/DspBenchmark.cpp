#include "dsp/Engine.h"
#include "dsp/Signals.h"
#include "dsp/TestImage.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

// The DSP's engine, block by block. "time" is the processor time of one block of all channels.

namespace {

constexpr std::size_t kBlock = 128;
constexpr std::size_t kBlocks = 64;

struct Load {
    unsigned rate;
    std::size_t channels;
    std::size_t taps;
    std::size_t sections;
};

/// A signal as it goes in and out of an engine.
class Stream {
public:
    explicit Stream(std::size_t channels)
        : input_(noise(channels, kBlock * kBlocks)), output_(input_) {}

    void play(dsp::Engine* engine) {
        for (std::size_t c = 0; c < input_.size(); ++c) {
            from_[c] = input_[c].data() + position_;
            to_[c] = output_[c].data() + position_;
        }
        engine->process(from_.data(), to_.data(), kBlock);
        position_ = (position_ + kBlock) % (kBlock * kBlocks);
    }

private:
    const Channels input_;
    Channels output_;
    std::vector<const double*> from_ = pointersTo(input_);
    std::vector<double*> to_ = pointersTo(&output_);
    std::size_t position_{0};
};

void run(benchmark::State& state, const Load& load, const dsp::VectorKernels& kernels) {
    const auto image = filterImage(load.channels, load.taps, load.sections);
    dsp::Engine engine(*image, {load.rate, load.channels}, kernels);
    Stream stream(load.channels);
    for ([[maybe_unused]] auto _ : state)
        stream.play(&engine);
    // How many such streams one processor would keep up with.
    state.counters["times_real_time"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * kBlock / load.rate, benchmark::Counter::kIsRate);
}

void construct(benchmark::State& state) {
    const auto image = filterImage(10, 1000, 30);
    for ([[maybe_unused]] auto _ : state)
        benchmark::DoNotOptimize(dsp::Engine(*image, {48000, 10}));
}

void add(const std::string& name, const Load& load,
         const dsp::VectorKernels& kernels = dsp::fastestKernels()) {
    benchmark::RegisterBenchmark(name.c_str(), [load, &kernels](benchmark::State& state) {
        run(state, load, kernels);
    })->Unit(benchmark::kMicrosecond);
}

void addAll() {
    add("fir+sections", {48000, 10, 1000, 30});
    add("fir", {48000, 10, 1000, 0});
    add("stereo/fir+sections", {48000, 2, 1000, 30});
    for (const unsigned rate : {96000U, 192000U})
        add(std::to_string(rate) + "/fir+sections", {rate, 10, 1000, 30});
    const dsp::VectorKernels* kernels[4];
    const std::size_t available = dsp::availableKernels(kernels, std::size(kernels));
    for (std::size_t i = 0; i < available; ++i)
        add(std::string(kernels[i]->name) + "/fir+sections", {48000, 10, 1000, 30}, *kernels[i]);
    benchmark::RegisterBenchmark("construct", construct)->Unit(benchmark::kMicrosecond);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    addAll();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
