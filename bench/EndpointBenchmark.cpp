// Calls of a calibration client: topology queries against empty handlers, and whole transfers, up
// to the image in the segment, against the same calls of handlers that do nothing.

#include "BenchDevice.h"
#include "SegmentView.h"

#include <benchmark/benchmark.h>
#include <grpcpp/grpcpp.h>

#include <future>
#include <stdexcept>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;
using dio::endpoint::EndpointDevice;

constexpr int kSegmentKey = 1234;

BenchDevice& device() {
    static BenchDevice device;
    return device;
}

FloorProcess& floor() {
    static FloorProcess floor;
    return floor;
}

// ---- Topology queries ----

template <typename Request, typename Reply>
using Method = grpc::Status (EndpointDevice::Stub::*)(grpc::ClientContext*, const Request&, Reply*);

template <typename Request, typename Reply>
void query(benchmark::State& state, CalibrationClient& client, Method<Request, Reply> method,
           const Request& request) {
    while (state.KeepRunning()) {
        grpc::ClientContext context;
        Reply reply;
        if (!(client.stub().*method)(&context, request, &reply).ok())
            state.SkipWithError("the query failed");
    }
}

dio::endpoint::Index index(int value) {
    dio::endpoint::Index result;
    result.set_value(value);
    return result;
}

void queryDevice(benchmark::State& state, CalibrationClient& client) {
    query(state, client, &EndpointDevice::Stub::GetDeviceInfo, dio::endpoint::Void());
}

void querySpeaker(benchmark::State& state, CalibrationClient& client) {
    query(state, client, &EndpointDevice::Stub::GetSpeakerInfo, index(9));
}

void querySection(benchmark::State& state, CalibrationClient& client) {
    query(state, client, &EndpointDevice::Stub::GetSectionInfo, index(3));
}

void queryFiir(benchmark::State& state, CalibrationClient& client) {
    query(state, client, &EndpointDevice::Stub::GetFIIRInfo, dio::endpoint::Variant());
}

void inRealTime(benchmark::internal::Benchmark* benchmark) {
    benchmark->UseRealTime()->MinTime(0.2);
}

BENCHMARK_CAPTURE(queryDevice, device, device().client())->Apply(inRealTime);
BENCHMARK_CAPTURE(queryDevice, floor, floor().client())->Apply(inRealTime);
BENCHMARK_CAPTURE(querySpeaker, device, device().client())->Apply(inRealTime);
BENCHMARK_CAPTURE(querySpeaker, floor, floor().client())->Apply(inRealTime);
BENCHMARK_CAPTURE(querySection, device, device().client())->Apply(inRealTime);
BENCHMARK_CAPTURE(querySection, floor, floor().client())->Apply(inRealTime);
BENCHMARK_CAPTURE(queryFiir, device, device().client())->Apply(inRealTime);
BENCHMARK_CAPTURE(queryFiir, floor, floor().client())->Apply(inRealTime);

// ---- Transfers ----

const std::vector<FilterDesign>& designs() {
    static const std::vector<FilterDesign> designs{benchDesign(1), benchDesign(2)};
    return designs;
}

/// Transfers into the active slot, so that the design goes through to the segment.
class TransferToSegment {
public:
    TransferToSegment() {
        transferDesign(device_.client(), kSlot, designs()[0]);
        device_.client().activate(kSlot);
        requireImage(segment_.awaitLastChannelTap(lastChannelTap(designs()[0]), 10s));
    }

    /// Time to the image. The client is answered later, when the slot is stored.
    Seconds run() {
        const FilterDesign& design = designs()[++transfers_ % designs().size()];
        const auto begin = Clock::now();
        auto image = std::async(std::launch::async, [&] {
            requireImage(segment_.awaitLastChannelTap(lastChannelTap(design), 10s));
            return Clock::now();
        });
        transferDesign(device_.client(), kSlot, design);
        answered_ += Clock::now() - begin;
        return image.get() - begin;
    }

    Seconds meanAnswer() const { return answered_ / static_cast<double>(transfers_); }

private:
    static void requireImage(bool published) {
        if (!published)
            throw std::runtime_error("the image does not come");
    }

    static constexpr int kSlot = 0;

    BenchDevice& device_{device()};  // before the segment, which it makes
    const SegmentView segment_{kSegmentKey};
    std::size_t transfers_{0};
    Seconds answered_{0};
};

void transferToSegment(benchmark::State& state) {
    TransferToSegment transfers;
    while (state.KeepRunning())
        state.SetIterationTime(transfers.run().count());
    state.counters["answered_ms"] = transfers.meanAnswer().count() * 1e3;
}

void transferToNobody(benchmark::State& state) {
    std::size_t transfers = 0;
    while (state.KeepRunning()) {
        const FilterDesign& design = designs()[++transfers % designs().size()];
        const auto begin = Clock::now();
        transferDesign(floor().client(), 0, design);
        state.SetIterationTime(Seconds(Clock::now() - begin).count());
    }
}

void inMilliseconds(benchmark::internal::Benchmark* benchmark) {
    benchmark->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(30);
}

BENCHMARK(transferToSegment)->Name("transfer/device")->Apply(inMilliseconds);
BENCHMARK(transferToNobody)->Name("transfer/floor")->Apply(inMilliseconds);

}  // namespace

int main(int argc, char** argv) {
    return runBenchmarks(argc, argv);
}
