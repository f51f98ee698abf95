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
#include <stdexcept>
#include <thread>

namespace {

using namespace std::chrono_literals;

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

/// Time after which the device has stored a choice and is idle again.
constexpr auto kUntilIdle = 120ms;

/// Times single choices until their image is in a segment, with a rest after each.
template <typename Choose, typename TapOf>
class ChoiceTimer {
public:
    ChoiceTimer(int key, std::chrono::milliseconds rest, Choose choose, TapOf tapOf)
        : segment_(key), rest_(rest), choose_(choose), tapOf_(tapOf) {}

    Microseconds run() {
        slot_ = (slot_ + 1) % kSlots;
        const Microseconds time = timed([&] {
            choose_(slot_);
            if (!segment_.awaitLastChannelTap(tapOf_(slot_), 5s))
                throw std::runtime_error("the image does not come");
        });
        std::this_thread::sleep_for(rest_);
        return time;
    }

private:
    const SegmentView segment_;
    const std::chrono::milliseconds rest_;
    const Choose choose_;
    const TapOf tapOf_;
    int slot_{0};
};

auto menuChoices(std::chrono::milliseconds rest) {
    FullDevice& full = device();
    return ChoiceTimer(
        kKey, rest, [&full](int slot) { full.device.tree().set(kMenu, slot); },
        [&full](int slot) { return full.taps.at(static_cast<std::size_t>(slot)); });
}

auto bareChoices(std::chrono::milliseconds rest) {
    floor().client().activate(0);
    return ChoiceTimer(
        FloorSegment::kKey, rest, [](int slot) { floor().client().activate(slot); },
        [](int slot) { return static_cast<float>(slot); });
}

void choice(benchmark::State& state) {
    auto device = menuChoices(kUntilIdle);
    auto floor = bareChoices(0ms);
    compare(
        state, [&] { return device.run(); }, [&] { return floor.run(); });
}

/// One lock at a time: each sampler needs a processor of its own.
template <typename Choices>
void sampleLock(benchmark::State& state, int key, Choices choices, const std::string& name) {
    LockSampler sampler(key);
    for (int i = 0; i < 300; ++i)
        choices.run();
    reportPercentiles(state, name, sampler.finish());
}

void lock(benchmark::State& state) {
    while (state.KeepRunning()) {
        state.SetIterationTime(timed([&] {
                                   sampleLock(state, kKey, menuChoices(5ms), "device");
                                   sampleLock(state, FloorSegment::kKey, bareChoices(5ms), "floor");
                               }).count() /
                               1e6);
    }
}

BENCHMARK(choice)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(300);
BENCHMARK(lock)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(1);

}  // namespace

int main(int argc, char** argv) {
    return runBenchmarks(argc, argv);
}
