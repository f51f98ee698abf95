#pragma once

#include "support/CalibrationClient.h"
#include "support/ControlClient.h"
#include "support/DeviceProcess.h"
#include "support/Subprocess.h"

#include <string>

// What the benchmarks measure, and what they measure it against: both processes of their own, with
// the client in the benchmark's process.

/// The ten-channel device; logs little, as in use.
DeviceProcess::Options benchDeviceOptions();

/// A design as large as the device takes it. Two seeds give different numbers.
FilterDesign benchDesign(std::uint32_t seed);

/// First tap of the last channel's second variant of a design, see SegmentView.
float lastChannelTap(const FilterDesign& design);

/// Transfers a design. Throws std::runtime_error when the device refuses it.
void transferDesign(CalibrationClient& client, int slot, const FilterDesign& design);

/// A device that runs while the object exists.
class BenchDevice {
public:
    explicit BenchDevice(const DeviceProcess::Options& options = benchDeviceOptions());

    DeviceProcess& process() { return process_; }
    CalibrationClient& client() { return client_; }
    ControlClient& tree() { return tree_; }

private:
    DeviceProcess process_;
    CalibrationClient client_;
    ControlClient tree_;
};

/// vesk-bench-floor, running while the object exists.
class FloorProcess {
public:
    FloorProcess();

    CalibrationClient& client() { return client_; }
    pid_t id() const { return process_.id(); }

private:
    Subprocess process_;
    CalibrationClient client_;
};

/// main() of a benchmark: on a key and a port of its own. Ends with 1 when that is not possible or
/// a benchmark throws.
int runBenchmarks(int argc, char** argv);
