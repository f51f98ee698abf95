// Measuring with a whole device: many clients at once, and an end in the middle of it.

#include "roomsim/AlsaPcm.h"
#include "support/Isolation.h"
#include "system/DeviceTest.h"

#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

namespace {

using namespace dio::endpoint;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kLostClient = 15s;  // until nothing is left of one that is gone without a word

/// A client with one stream, and a connection of its own.
class StreamingClient {
public:
    void play() { open<Progress>(client_.stub().StartStimuli(&context_, StimuliStart())); }
    void record() {
        open<AudioBuffers>(client_.stub().StartRecordingStimuli(&context_, StimuliStart()));
    }
    void listen() { open<AudioBuffers>(client_.stub().StartStreaming(&context_)); }
    void watch() { open<NotificationInfo>(client_.stub().Notifications(&context_)); }

    bool awaitMessage() { return read_(); }
    void cancel() { context_.TryCancel(); }

    grpc::Status finish() {
        while (read_()) {
        }
        return finish_();
    }

private:
    template <typename Message, typename Stream>
    void open(std::unique_ptr<Stream> opened) {
        const std::shared_ptr<Stream> stream = std::move(opened);
        read_ = [stream] {
            Message message;
            return stream->Read(&message);
        };
        finish_ = [stream] { return stream->Finish(); };
    }

    CalibrationClient client_;
    grpc::ClientContext context_;
    std::function<bool()> read_;
    std::function<grpc::Status()> finish_;
};

/// Many clients at once.
class Crowd {
public:
    StreamingClient& add() { return *clients_.emplace_back(std::make_unique<StreamingClient>()); }

    /// Each client reads until its stream ends.
    void read() {
        for (const auto& client : clients_)
            readers_.emplace_back([this, &client] { note(client->finish()); });
    }

    void leave() {
        for (const auto& client : clients_)
            client->cancel();
        for (std::thread& reader : readers_)
            reader.join();
    }

    /// What clients were turned away with, and how many.
    std::map<std::string, int> refusals() {
        const std::lock_guard lock(mutex_);
        return refusals_;
    }

private:
    void note(const grpc::Status& status) {
        if (status.error_code() != grpc::StatusCode::RESOURCE_EXHAUSTED)
            return;
        const std::lock_guard lock(mutex_);
        ++refusals_[status.error_message()];
    }

    std::vector<std::unique_ptr<StreamingClient>> clients_;
    std::vector<std::thread> readers_;
    std::mutex mutex_;
    std::map<std::string, int> refusals_;  // guarded by mutex_
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

    bool clientIsConnected() { return tree().value("talvor/corbel/diracClientStatus") == true; }

    /// A filter that a measurement must leave on.
    void activateFilter() {
        transfer(0, filter_);
        activate(0, filter_);
    }

    /// Nothing is left of measurements and clients.
    void expectAllAsBefore() {
        EXPECT_TRUE(eventually([this] {
            return playerIsStopped() && microphoneIsFree() && subMixIsOn() && !clientIsConnected();
        }));
        EXPECT_TRUE(awaitDesign(filter_)) << "the filter is on";
        EXPECT_TRUE(eventually(
            [this] { return tree().value(kSlotsRuntime) == tree().value(kSlotsSettings); }));
    }

    /// The next client of each kind is served.
    void expectServesAll() {
        prepareNoise();
        StreamingClient watcher;
        watcher.watch();
        EXPECT_TRUE(watcher.awaitMessage());
        expectServes(&StreamingClient::listen);
        expectServes(&StreamingClient::play);
        expectServes(&StreamingClient::record);
        watcher.cancel();
        EXPECT_EQ(watcher.finish().error_code(), grpc::StatusCode::CANCELLED);
    }
    static void expectServes(void (StreamingClient::*open)()) {
        StreamingClient client;
        (client.*open)();
        EXPECT_TRUE(client.awaitMessage());
        client.cancel();
        client.finish();
    }

    void prepareNoise() { prepare(STIMULUS_TYPE_PINK_NOISE, {0}); }
    void prepare(StimulusType type, const std::vector<int>& speakers) {
        StimuliPrepare prepared;
        prepared.mutable_stimulus()->set_type(type);
        prepared.mutable_speakers()->Add(speakers.begin(), speakers.end());
        grpc::ClientContext context;
        CalibrationClient::limit(&context);
        Void done;
        ASSERT_TRUE(client().stub().PrepareStimuli(&context, prepared, &done).ok());
    }

private:
    const FilterDesign filter_ = makeDesign({}, 1);
    std::optional<RoomFiles> files_;
    std::optional<AlsaRoom> room_;
};

/// The network of the test's own, with a cable that can be pulled.
class PulledCableTest : public MeasurementTest {
protected:
    void SetUp() override {
        if (!isIsolated())
            GTEST_SKIP() << "the cable is the machine's";
        enterRoom();
        start();
        activateFilter();
    }

    /// Plugs it in again when the device has given its clients up.
    void pullCable() {
        const PulledCable pulled;
        const auto begin = Clock::now();
        expectAllAsBefore();
        EXPECT_LT(Clock::now() - begin, kLostClient);
    }

    /// A connection of the client's that has been lost must fail before it makes a new one.
    void awaitConnection() {
        ASSERT_TRUE(eventually([this] {
            DeviceInfo info;
            return client().deviceInfo(&info).ok();
        }));
    }
};

}  // namespace

TEST_F(MeasurementTest, aDeviceThatIsAskedToEndEndsPlaybackAndStreams) {
    start();
    prepareNoise();
    StreamingClient player;
    player.play();
    ASSERT_TRUE(player.awaitMessage());
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
    ASSERT_TRUE(player.awaitMessage());
    ASSERT_TRUE(awaitBypass());
    device().kill();
    EXPECT_FALSE(player.finish().ok());

    start();
    EXPECT_TRUE(awaitDesign(makeDesign({}, 1))) << "the filter is on";
    prepareNoise();
    StreamingClient next;
    next.play();
    EXPECT_TRUE(next.awaitMessage());
    next.cancel();
    next.finish();
}

TEST_F(PulledCableTest, aRecordingFreesTheDevice) {
    prepareNoise();
    StreamingClient recorder;
    recorder.record();
    ASSERT_TRUE(recorder.awaitMessage());
    ASSERT_TRUE(awaitBypass());
    ASSERT_TRUE(eventually([this] { return !playerIsStopped(); }));
    EXPECT_FALSE(microphoneIsFree() || subMixIsOn());
    pullCable();
    awaitConnection();
    expectServesAll();
    expectAllAsBefore();
}

TEST_F(PulledCableTest, aSweepAStreamAndNotificationsFreeTheDevice) {
    prepare(STIMULUS_TYPE_LOG_SWEEP, std::vector<int>(20, 0));  // of 5.5 s each
    StreamingClient watcher;
    watcher.watch();
    // It has stopped the player by then.
    ASSERT_TRUE(eventually([this] { return clientIsConnected(); }));
    StreamingClient listener;
    listener.listen();
    ASSERT_TRUE(listener.awaitMessage());
    StreamingClient player;
    player.play();
    ASSERT_TRUE(player.awaitMessage());
    ASSERT_TRUE(awaitBypass());
    ASSERT_TRUE(eventually([this] { return !playerIsStopped(); }));
    EXPECT_FALSE(microphoneIsFree() || subMixIsOn());
    pullCable();
    awaitConnection();
    expectServesAll();
    expectAllAsBefore();
}

TEST_F(MeasurementTest, sixtyFourClientsAtOnceAreServedOrTurnedAway) {
    enterRoom();
    start();
    activateFilter();
    prepareNoise();
    Crowd crowd;
    crowd.add().watch();
    ASSERT_TRUE(eventually([this] { return clientIsConnected(); }));
    StreamingClient& listener = crowd.add();
    listener.listen();
    ASSERT_TRUE(listener.awaitMessage());
    StreamingClient& player = crowd.add();
    player.play();
    ASSERT_TRUE(player.awaitMessage());
    crowd.add().record();  // when the listener has gone
    for (int i = 0; i < 15; ++i) {
        crowd.add().watch();
        crowd.add().listen();
        crowd.add().play();
        crowd.add().record();
    }
    DeviceInfo info;
    EXPECT_TRUE(client().deviceInfo(&info).ok());
    crowd.read();
    const std::map<std::string, int> refused{{"client already connected", 15},
                                             {"Measurement session active!", 15},
                                             {"Stimuli playback already active", 15}};
    EXPECT_TRUE(eventually([&] { return crowd.refusals() == refused; }))
        << testing::PrintToString(crowd.refusals());
    EXPECT_TRUE(awaitBypass());
    crowd.leave();
    expectAllAsBefore();
    expectServesAll();
    expectAllAsBefore();
}
