// Start of a device, from its execution to an answer on the calibration port, and its peak memory:
// with no slot filled, with eight full slots of ten channels whose sub-sampler data are cached, and
// with the cache gone. Counts the calls of the DSP's library on the way.

#include "BenchDevice.h"

#include <benchmark/benchmark.h>

#include <sstream>

namespace {

constexpr int kSlots = 8;

/// A line of the log right before each call of the DSP's library.
constexpr const char* kLibraryCall = "Filter data not cached, calculate data for";

int occurrences(const std::string& text, const std::string& pattern) {
    int count = 0;
    for (auto at = text.find(pattern); at != std::string::npos; at = text.find(pattern, at + 1))
        ++count;
    return count;
}

/// A number from the process's status, kB.
double statusOf(pid_t process, const std::string& field) {
    std::istringstream status(readFile("/proc/" + std::to_string(process) + "/status"));
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(field + ":"))
            return std::stod(line.substr(field.size() + 1));
    throw std::runtime_error(field + " of the device");
}

DeviceProcess::Options loggingOptions() {
    DeviceProcess::Options options = benchDeviceOptions();
    options.logLevel = "DEBUG";
    return options;
}

void fillSlots(DeviceProcess& device) {
    device.start();
    CalibrationClient client;
    for (int slot = 0; slot < kSlots; ++slot)
        transferDesign(client, slot, benchDesign(static_cast<std::uint32_t>(slot)));
    client.activate(0);
    device.awaitLog("Filled precached into shm");
    device.stop();
}

DeviceProcess& emptyDevice() {
    static DeviceProcess device(loggingOptions());
    return device;
}

DeviceProcess& fullDevice() {
    static const auto device = [] {
        auto full = std::make_unique<DeviceProcess>(loggingOptions());
        fillSlots(*full);
        return full;
    }();
    return *device;
}

void keepCache(DeviceProcess&) {
}

void removeCache(DeviceProcess& device) {
    remove_all(device.stateDirectory() / "data-rw");
}

void start(benchmark::State& state, DeviceProcess& device, void (*prepare)(DeviceProcess&)) {
    double libraryCalls = 0;
    double peak = 0;
    while (state.KeepRunning()) {
        state.PauseTiming();
        prepare(device);
        state.ResumeTiming();
        device.start();
        state.PauseTiming();
        libraryCalls += occurrences(device.log(), kLibraryCall);
        peak = std::max(peak, statusOf(device.process().id(), "VmHWM"));
        device.stop();
        state.ResumeTiming();
    }
    state.counters["library_calls"] =
        benchmark::Counter(libraryCalls, benchmark::Counter::kAvgIterations);
    state.counters["peak_kB"] = peak;
}

/// Peak of a process that has received the eight designs, instead of read them from its settings.
void transferMemory(benchmark::State& state) {
    double peak = 0;
    while (state.KeepRunning()) {
        BenchDevice device;
        for (int slot = 0; slot < kSlots; ++slot)
            transferDesign(device.client(), slot, benchDesign(static_cast<std::uint32_t>(slot)));
        device.client().activate(0);
        peak = std::max(peak, statusOf(device.process().process().id(), "VmHWM"));
    }
    state.counters["peak_kB"] = peak;
}

void inMilliseconds(benchmark::internal::Benchmark* benchmark) {
    benchmark->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(5);
}

BENCHMARK_CAPTURE(start, full, fullDevice(), keepCache)->Apply(inMilliseconds);
BENCHMARK_CAPTURE(start, uncached, fullDevice(), removeCache)->Apply(inMilliseconds);
BENCHMARK_CAPTURE(start, empty, emptyDevice(), keepCache)->Apply(inMilliseconds);
BENCHMARK(transferMemory)->Name("transfers/full")->Apply(inMilliseconds);

}  // namespace

int main(int argc, char** argv) {
    return runBenchmarks(argc, argv);
}
