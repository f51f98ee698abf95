// Measuring with a whole device: many clients at once, and an end in the middle of it.

#include "roomsim/AlsaPcm.h"
#include "support/Isolation.h"
#include "system/DeviceTest.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace {

using namespace dio::endpoint;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kLostClient = 15s;  // until a client that is gone without a word is noticed
constexpr auto kTail = 1500ms;     // of a stimulus

/// A client that plays or listens; its connection is its own.
class StreamingClient {
public:
    void play() { playback_ = client_.stub().StartStimuli(&context_, StimuliStart()); }
    void record() { recording_ = client_.stub().StartRecordingStimuli(&context_, StimuliStart()); }
    void listen() { stream_ = client_.stub().StartStreaming(&context_); }
    void cancel() { context_.TryCancel(); }

    bool awaitProgress() {
        Progress progress;
        return playback_->Read(&progress);
    }

    bool awaitAudio() {
        AudioBuffers audio;
        return recording_->Read(&audio);
    }

    grpc::Status finish() {
        if (playback_)
            return finish<Progress>(*playback_);
        if (recording_)
            return finish<AudioBuffers>(*recording_);
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
    std::unique_ptr<grpc::ClientReader<AudioBuffers>> recording_;
    std::unique_ptr<grpc::ClientReaderWriter<AudioBuffers, AudioBuffers>> stream_;
};

class MeasurementTest : public DeviceTest {
protected:
    /// The device's speakers and microphone are in a room, in real time.
    void enterRoom() {
        nlohmann::json room = measuredRoom(2);
        room["pace"] = "realtime";
        files_.emplace(room);
        files_->addWav("responses.wav", 48000, {{1.0F}, {1.0F}});
        room_.emplace(*files_);
        options().arguments = {"--playback", "room", "--microphone", "room"};
    }

    // What a measurement takes of the device.
    bool playerIsStopped() { return tree().value("player/data")["state"] == 0; }
    bool microphoneIsFree() { return tree().value("powerManager/resources")["holders"].empty(); }
    bool subMixIsOn() { return tree().value("streamer/default/subMixDisabled") == false; }

    void prepareNoise() {
        StimuliPrepare prepared;
        prepared.mutable_stimulus()->set_type(STIMULUS_TYPE_PINK_NOISE);
        prepared.add_speakers(0);
        grpc::ClientContext context;
        CalibrationClient::limit(&context);
        Void done;
        ASSERT_TRUE(client().stub().PrepareStimuli(&context, prepared, &done).ok());
    }

private:
    std::optional<RoomFiles> files_;
    std::optional<AlsaRoom> room_;
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

TEST_F(MeasurementTest, aRecordingWhoseCableIsPulledFreesTheDevice) {
    if (!isIsolated())
        GTEST_SKIP() << "the cable is the machine's";
    enterRoom();
    start();
    transfer(0, makeDesign({}, 1));
    activate(0, makeDesign({}, 1));
    prepareNoise();
    StreamingClient lost;
    lost.record();
    ASSERT_TRUE(lost.awaitAudio());
    ASSERT_TRUE(awaitBypass());
    EXPECT_TRUE(eventually([this] { return !playerIsStopped(); }));
    EXPECT_FALSE(microphoneIsFree() || subMixIsOn());
    {
        const PulledCable pulled;
        const auto begin = Clock::now();
        EXPECT_TRUE(
            eventually([this] { return playerIsStopped() && microphoneIsFree() && subMixIsOn(); }));
        EXPECT_TRUE(awaitDesign(makeDesign({}, 1))) << "the filter is on";
        EXPECT_LT(Clock::now() - begin, kLostClient + kTail);
    }
    // The client's own side of the lost connection must fail before it makes a new one.
    ASSERT_TRUE(eventually([this] {
        DeviceInfo info;
        return client().deviceInfo(&info).ok();
    }));
    prepareNoise();
    StreamingClient next;
    next.record();
    EXPECT_TRUE(next.awaitAudio());
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
