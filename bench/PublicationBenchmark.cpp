// A choice in the menu, with all eight slots full and precached, up to its image in the segment,
// and how long the DSP is locked out meanwhile. The floor is a call that does nothing but copy an
// image under a lock of its own.

#include "BenchDevice.h"
#include "FloorSegment.h"
#include "LockSampler.h"
#include "Percentiles.h"
#include "SegmentView.h"
#include "support/Eventually.h"

#include <benchmark/benchmark.h>

#include <array>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;

constexpr int kKey = 1234;  // of the device's segment and lock
constexpr int kSlots = 8;
constexpr const char* kMenu = "dirac/activeFilter";

/// A device whose slots are full.
struct FullDevice {
    BenchDevice device;
    std::array<float, kSlots> taps{};  ///< of each slot, see lastChannelTap()

    FullDevice() {
        for (int slot = 0; slot < kSlots; ++slot) {
            const FilterDesign design = benchDesign(static_cast<std::uint32_t>(slot));
            taps.at(static_cast<std::size_t>(slot)) = lastChannelTap(design);
            transferDesign(device.client(), slot, design);
        }
        if (!device.tree().set(kMenu, 0).ok() ||
            !eventually([&] { return device.tree().isQuietFor(500ms); }))
            throw std::runtime_error("the device does not come to rest");
    }
};

FullDevice& device() {
    static FullDevice device;
    return device;
}

FloorProcess& floor() {
    static FloorProcess floor;
    return floor;
}

/// Makes choices, one after the other and with a rest between them, and times each until its image
/// is in the segment.
template <typename Choose, typename TapOf>
std::vector<Microseconds> timeChoices(benchmark::State& state, int key, const Choose& choose,
                                      const TapOf& tapOf) {
    const SegmentView segment(key);
    std::vector<Microseconds> times;
    int slot = 0;
    while (state.KeepRunning()) {
        slot = (slot + 1) % kSlots;
        const auto begin = Clock::now();
        choose(slot);
        if (!segment.awaitLastChannelTap(tapOf(slot), 5s))
            state.SkipWithError("the image did not come");
        times.emplace_back(Clock::now() - begin);
        state.SetIterationTime(times.back().count() / 1e6);
        std::this_thread::sleep_for(5ms);
    }
    return times;
}

std::vector<Microseconds> timeMenuChoices(benchmark::State& state) {
    return timeChoices(
        state, kKey, [](int slot) { device().device.tree().set(kMenu, slot); },
        [](int slot) { return device().taps.at(static_cast<std::size_t>(slot)); });
}

std::vector<Microseconds> timeBarePublications(benchmark::State& state) {
    return timeChoices(
        state, FloorSegment::kKey, [](int slot) { floor().client().activate(slot); },
        [](int slot) { return static_cast<float>(slot); });
}

void choice(benchmark::State& state) {
    device();
    reportPercentiles(state, "choice", timeMenuChoices(state));
}

void choiceFloor(benchmark::State& state) {
    floor().client().activate(0);
    reportPercentiles(state, "choice", timeBarePublications(state));
}

void lockHeld(benchmark::State& state) {
    device();
    LockSampler sampler(kKey);
    timeMenuChoices(state);
    reportPercentiles(state, "held", sampler.finish());
}

void lockHeldFloor(benchmark::State& state) {
    floor().client().activate(0);
    LockSampler sampler(FloorSegment::kKey);
    timeBarePublications(state);
    reportPercentiles(state, "held", sampler.finish());
}

void inMicroseconds(benchmark::internal::Benchmark* benchmark) {
    benchmark->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(1000);
}

BENCHMARK(choice)->Name("choice/device")->Apply(inMicroseconds);
BENCHMARK(choiceFloor)->Name("choice/floor")->Apply(inMicroseconds);
BENCHMARK(lockHeld)->Name("lock/device")->Apply(inMicroseconds);
BENCHMARK(lockHeldFloor)->Name("lock/floor")->Apply(inMicroseconds);

}  // namespace

int main(int argc, char** argv) {
    return runBenchmarks(argc, argv);
}
