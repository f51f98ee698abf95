// Open streams: the microphone, from the frames' capture to the client, and notifications while
// nothing happens. The floor is a bare gRPC stream of the same messages at the same times.

#include "BenchDevice.h"
#include "FrameTime.h"
#include "Percentiles.h"
#include "ProcessorTime.h"
#include "support/ScratchDirectory.h"

#include <benchmark/benchmark.h>
#include <grpcpp/grpcpp.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using namespace std::chrono_literals;
using namespace dio::endpoint;

constexpr double kPercent = 100.0;

/// The configuration of a device whose microphone tells the time.
class ClockMicrophone {
public:
    ClockMicrophone() {
        const auto file = directory_.path() / "asound.conf";
        std::ofstream(file) << "pcm_type.veskclock { lib \"" << VESK_BENCH_CLOCK << "\" }\n"
                            << "pcm.clock { type veskclock }\n";
        setenv("ALSA_CONFIG_PATH", ("/usr/share/alsa/alsa.conf:" + file.string()).c_str(), 1);
    }

    static DeviceProcess::Options options() {
        DeviceProcess::Options options = benchDeviceOptions();
        options.arguments = {"--microphone", "clock"};
        return options;
    }

private:
    const ScratchDirectory directory_;
};

/// Who streams, and what it costs.
struct Streamer {
    CalibrationClient& client;
    ProcessorTime processor;
};

Streamer& device() {
    static const ClockMicrophone microphone;
    static BenchDevice device(ClockMicrophone::options());
    static Streamer streamer{device.client(), ProcessorTime(device.process().process().id())};
    return streamer;
}

Streamer& bareStreamer() {
    static FloorProcess floor;
    static Streamer streamer{floor.client(), ProcessorTime(floor.id())};
    return streamer;
}

// ---- Microphone ----

/// What is found out about one of the two.
struct Findings {
    std::vector<Microseconds> latencies;
    double load{0.0};
};

class MicrophoneStream {
public:
    explicit MicrophoneStream(CalibrationClient& client)
        : stream_(client.stub().StartStreaming(&context_)) {}
    ~MicrophoneStream() {
        context_.TryCancel();
        while (stream_->Read(&message_)) {
        }
        stream_->Finish();
    }
    MicrophoneStream(const MicrophoneStream&) = delete;
    MicrophoneStream& operator=(const MicrophoneStream&) = delete;

    /// Waits for the next block. How long ago its last frame was captured.
    Microseconds next() {
        if (!stream_->Read(&message_))
            throw std::runtime_error("the microphone's stream ends");
        const auto now = frametime::Clock::now();
        const auto& samples = message_.buffers(0).samples();
        return frametime::ageOf(samples[samples.size() - 1], now);
    }

private:
    grpc::ClientContext context_;
    const std::unique_ptr<grpc::ClientReaderWriter<AudioBuffers, AudioBuffers>> stream_;
    AudioBuffers message_;
};

constexpr int kBlocksBefore = 100;  // until the stream runs evenly
constexpr int kBlocks = 750;        // 2 s
constexpr int kRounds = 5;

void listen(Streamer& streamer, Findings& findings) {
    MicrophoneStream stream(streamer.client);
    for (int i = 0; i < kBlocksBefore; ++i)
        stream.next();
    streamer.processor.begin();
    for (int i = 0; i < kBlocks; ++i)
        findings.latencies.push_back(stream.next());
    findings.load += streamer.processor.load() / kRounds;
}

void report(benchmark::State& state, const std::string& name, Findings findings) {
    reportPercentiles(state, name, std::move(findings.latencies));
    state.counters[name + "_load"] = kPercent * findings.load;
}

void microphone(benchmark::State& state) {
    Findings ofDevice;
    Findings ofFloor;
    while (state.KeepRunning()) {
        state.SetIterationTime(timed([&] {
                                   for (int round = 0; round < kRounds; ++round) {
                                       listen(device(), ofDevice);
                                       listen(bareStreamer(), ofFloor);
                                   }
                               }).count() /
                               1e6);
    }
    report(state, "device", std::move(ofDevice));
    report(state, "floor", std::move(ofFloor));
}

BENCHMARK(microphone)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);

// ---- Notifications ----

class NotificationStream {
public:
    explicit NotificationStream(CalibrationClient& client)
        : stream_(client.stub().Notifications(&context_)), reader_([this] {
              NotificationInfo message;
              while (stream_->Read(&message)) {
              }
          }) {}
    ~NotificationStream() {
        context_.TryCancel();
        reader_.join();
        stream_->Finish();
    }
    NotificationStream(const NotificationStream&) = delete;
    NotificationStream& operator=(const NotificationStream&) = delete;

private:
    grpc::ClientContext context_;
    const std::unique_ptr<grpc::ClientReaderWriter<ClientNotificationInfo, NotificationInfo>>
        stream_;
    std::thread reader_;
};

constexpr auto kUntilRest = 2s;  // the device has stored and told everything
constexpr auto kRest = 10s;

/// Device and floor side by side: neither has anything to do.
void notifications(benchmark::State& state) {
    const NotificationStream ofDevice(device().client);
    const NotificationStream ofFloor(bareStreamer().client);
    std::this_thread::sleep_for(kUntilRest);
    while (state.KeepRunning()) {
        device().processor.begin();
        bareStreamer().processor.begin();
        std::this_thread::sleep_for(kRest);
        state.counters["device_load"] = kPercent * device().processor.load();
        state.counters["floor_load"] = kPercent * bareStreamer().processor.load();
        state.SetIterationTime(std::chrono::duration<double>(kRest).count());
    }
}

BENCHMARK(notifications)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

int main(int argc, char** argv) {
    return runBenchmarks(argc, argv);
}
