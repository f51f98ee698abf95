// Calls of a calibration client: topology queries against empty handlers, and whole transfers, up
// to the image in the segment, against the same calls of handlers that do nothing.

#include "BenchDevice.h"
#include "Percentiles.h"
#include "SegmentView.h"

#include <benchmark/benchmark.h>
#include <grpcpp/grpcpp.h>

#include <future>
#include <stdexcept>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
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
void query(benchmark::State& state, Method<Request, Reply> method, const Request& request) {
    const auto timeCall = [&](CalibrationClient& client) {
        return timed([&] {
            grpc::ClientContext context;
            Reply reply;
            if (!(client.stub().*method)(&context, request, &reply).ok())
                throw std::runtime_error("a query failed");
        });
    };
    compare(
        state, [&] { return timeCall(device().client()); },
        [&] { return timeCall(floor().client()); });
}

dio::endpoint::Index index(int value) {
    dio::endpoint::Index result;
    result.set_value(value);
    return result;
}

void inMicroseconds(benchmark::internal::Benchmark* benchmark) {
    benchmark->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(3000);
}

BENCHMARK_CAPTURE(query, device, &EndpointDevice::Stub::GetDeviceInfo, dio::endpoint::Void())
    ->Apply(inMicroseconds);
BENCHMARK_CAPTURE(query, speaker, &EndpointDevice::Stub::GetSpeakerInfo, index(9))
    ->Apply(inMicroseconds);
BENCHMARK_CAPTURE(query, section, &EndpointDevice::Stub::GetSectionInfo, index(3))
    ->Apply(inMicroseconds);
BENCHMARK_CAPTURE(query, fiir, &EndpointDevice::Stub::GetFIIRInfo, dio::endpoint::Variant())
    ->Apply(inMicroseconds);

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
        awaitImage(designs()[0]);
    }

    /// Time to the image. The client is answered later, when the slot is stored.
    Microseconds run(const FilterDesign& design) {
        const auto begin = Clock::now();
        auto image = std::async(std::launch::async, [&] {
            awaitImage(design);
            return Clock::now();
        });
        transferDesign(device_.client(), kSlot, design);
        answers_.emplace_back(Clock::now() - begin);
        return image.get() - begin;
    }

    /// Times to the answer.
    const std::vector<Microseconds>& answers() const { return answers_; }

private:
    void awaitImage(const FilterDesign& design) const {
        if (!segment_.awaitLastChannelTap(lastChannelTap(design), 10s))
            throw std::runtime_error("the image does not come");
    }

    static constexpr int kSlot = 0;

    BenchDevice& device_{device()};  // before the segment, which it makes
    const SegmentView segment_{kSegmentKey};
    std::vector<Microseconds> answers_;
};

void transfer(benchmark::State& state) {
    TransferToSegment toSegment;
    std::size_t transfers = 0;
    std::size_t bareTransfers = 0;
    compare(
        state, [&] { return toSegment.run(designs()[++transfers % designs().size()]); },
        [&] {
            const FilterDesign& design = designs()[++bareTransfers % designs().size()];
            return timed([&] { transferDesign(floor().client(), 0, design); });
        });
    reportPercentiles(state, "answer", toSegment.answers());
}

BENCHMARK(transfer)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(60);

}  // namespace

int main(int argc, char** argv) {
    return runBenchmarks(argc, argv);
}
