// Measuring with a whole device: many clients at once, and an end in the middle of it.

#include "system/DeviceTest.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace {

using namespace dio::endpoint;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// A client that plays or listens; its connection is its own.
class StreamingClient {
public:
    void play() { playback_ = client_.stub().StartStimuli(&context_, StimuliStart()); }
    void listen() { stream_ = client_.stub().StartStreaming(&context_); }
    void cancel() { context_.TryCancel(); }

    bool awaitProgress() {
        Progress progress;
        return playback_->Read(&progress);
    }

    grpc::Status finish() {
        if (playback_)
            return finish<Progress>(*playback_);
        return finish<AudioBuffers>(*stream_);
    }

private:
    template <typename Message, typename Stream>
    static grpc::Status finish(Stream& stream) {
        Message message;
        while (stream.Read(&message)) {
        }
        return stream.Finish();
    }

    CalibrationClient client_;
    grpc::ClientContext context_;
    std::unique_ptr<grpc::ClientReader<Progress>> playback_;
    std::unique_ptr<grpc::ClientReaderWriter<AudioBuffers, AudioBuffers>> stream_;
};

class MeasurementTest : public DeviceTest {
protected:
    void prepareNoise() {
        StimuliPrepare prepared;
        prepared.mutable_stimulus()->set_type(STIMULUS_TYPE_PINK_NOISE);
        prepared.add_speakers(0);
        grpc::ClientContext context;
        CalibrationClient::limit(&context);
        Void done;
        ASSERT_TRUE(client().stub().PrepareStimuli(&context, prepared, &done).ok());
    }
};

}  // namespace

TEST_F(MeasurementTest, aDeviceThatIsAskedToEndEndsPlaybackAndStreams) {
    start();
    prepareNoise();
    StreamingClient player;
    player.play();
    ASSERT_TRUE(player.awaitProgress());
    StreamingClient listener;
    listener.listen();
    const auto begin = Clock::now();
    const ProcessEnd end = device().stop();
    EXPECT_EQ(end.exitCode, 0) << "signal " << end.signal;
    EXPECT_LT(Clock::now() - begin, 10s);
    EXPECT_FALSE(player.finish().ok());
    EXPECT_FALSE(listener.finish().ok());
}

TEST_F(MeasurementTest, aKilledDeviceMeasuresAgainAfterItsStart) {
    start();
    transfer(0, makeDesign({}, 1));
    activate(0, makeDesign({}, 1));
    prepareNoise();
    StreamingClient player;
    player.play();
    ASSERT_TRUE(player.awaitProgress());
    ASSERT_TRUE(awaitBypass());
    device().kill();
    EXPECT_FALSE(player.finish().ok());

    start();
    EXPECT_TRUE(awaitDesign(makeDesign({}, 1))) << "the filter is on";
    prepareNoise();
    StreamingClient next;
    next.play();
    EXPECT_TRUE(next.awaitProgress());
    next.cancel();
    next.finish();
}

TEST_F(MeasurementTest, sixtyFourClientsAtOnceAreServedOrTurnedAway) {
    start();
    prepareNoise();
    std::vector<std::unique_ptr<StreamingClient>> clients;
    for (int i = 0; i < 64; ++i) {
        clients.push_back(std::make_unique<StreamingClient>());
        if (i % 2 == 0)
            clients.back()->play();
        else
            clients.back()->listen();
    }
    DeviceInfo info;
    EXPECT_TRUE(client().deviceInfo(&info).ok());
    std::atomic<int> refused{0};
    std::vector<std::thread> readers;
    for (const auto& streaming : clients)
        readers.emplace_back([&] {
            if (streaming->finish().error_code() == grpc::StatusCode::RESOURCE_EXHAUSTED)
                ++refused;
        });
    // All players but one; the streams wait for each other.
    EXPECT_TRUE(eventually([&] { return refused == 31; }));
    for (const auto& streaming : clients)
        streaming->cancel();
    for (std::thread& reader : readers)
        reader.join();

    StreamingClient next;
    next.play();
    EXPECT_TRUE(next.awaitProgress()) << "within the time that a playback waits for another's end";
    next.cancel();
    next.finish();
}
