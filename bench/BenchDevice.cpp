#include "BenchDevice.h"

#include "support/Isolation.h"

#include <benchmark/benchmark.h>

#include <exception>
#include <iostream>
#include <stdexcept>

namespace {

DeviceProcess& started(DeviceProcess& process) {
    process.start();
    return process;
}

std::string addressFrom(Subprocess& floor) {
    const auto port = floor.readLine();
    if (!port)
        throw std::runtime_error("vesk-bench-floor does not start");
    return "127.0.0.1:" + *port;
}

}  // namespace

DeviceProcess::Options benchDeviceOptions() {
    DeviceProcess::Options options;
    options.description = "ten-channel";
    options.logLevel = "WARN";
    return options;
}

FilterDesign benchDesign(std::uint32_t seed) {
    return makeDesign(kFullDesign, seed);
}

float lastChannelTap(const FilterDesign& design) {
    return design.at(DiracLimits::channels - 1).fiirs.back().fir().taps(0);
}

void transferDesign(CalibrationClient& client, int slot, const FilterDesign& design) {
    static std::int64_t creationTime = 0;
    const auto info = makeSlot(slot, "Benchmark", ++creationTime);
    const grpc::Status status = client.transfer(info, design);
    if (!status.ok())
        throw std::runtime_error("transfer: " + status.error_message());
}

BenchDevice::BenchDevice(const DeviceProcess::Options& options)
    : process_(options), tree_(started(process_).controlSocket()) {
}

FloorProcess::FloorProcess() : process_({VESK_BENCH_FLOOR}), client_(addressFrom(process_)) {
}

int runBenchmarks(int argc, char** argv) try {
    if (!isolateFromMachine())
        throw std::runtime_error("the kernel gives no key and no port of our own");
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
} catch (const std::exception& error) {
    std::cerr << argv[0] << ": " << error.what() << '\n';
    return 1;
}
