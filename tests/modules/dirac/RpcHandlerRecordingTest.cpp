#include "modules/dirac/CallLog.h"
#include "modules/dirac/MeasurementFixture.h"
#include "modules/dirac/RpcHandler.h"
#include "modules/dirac/StandInMicrophone.h"
#include "modules/dirac/StandInSender.h"
#include "sdk/cm/VeskPaths.h"
#include "sdk/player/PlayLogicInterface.h"

#include <gmock/gmock.h>

#include <thread>

using namespace dio::endpoint;
using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

using Clock = std::chrono::steady_clock;

/// The microphone's stream, which both sides may write.
class StreamingClient {
public:
    StreamingClient() : stream_(client_.stub().StartStreaming(&context_)) {}

    bool next(AudioBuffers* message) { return stream_->Read(message); }
    bool write() { return stream_->Write(AudioBuffers()); }
    void cancel() { context_.TryCancel(); }

    std::string finish() {
        AudioBuffers message;
        while (stream_->Read(&message)) {
        }
        return outcome(stream_->Finish());
    }

private:
    CalibrationClient client_;
    grpc::ClientContext context_;
    const std::unique_ptr<grpc::ClientReaderWriter<AudioBuffers, AudioBuffers>> stream_;
};

/// Recording on a device whose microphone and media transport are stand-ins.
class RpcHandlerRecordingTest : public MeasurementFixture {
protected:
    RpcHandlerRecordingTest() {
        sender().reset();
        microphone().reset();
        CallLog::instance().clear();
        description.micDeviceName = QStringLiteral("mic");
    }
    ~RpcHandlerRecordingTest() override {
        sender().letAllThrough();
        stopDevice();
    }

    static StandInSender& sender() { return StandInSender::instance(); }
    static StandInMicrophone& microphone() { return StandInMicrophone::instance(); }

    void start() {
        startDevice();
        CallLog::instance().clear();
    }

    /// Waits until a recording plays and is held there.
    void holdPlayback() {
        sender().hold();
        prepare(sweepThrough({0}));
    }
    static bool isPlaying() { return sender().isHolding(); }

    static bool microphoneIsFree() {
        const auto requests = microphone().requests();
        return microphone().openDevices() == 0 && !requests.empty() &&
               requests.back() == "release Dirac 3";
    }
};

const std::string kRecording =
    "virtual grpc::Status RpcHandler::StartRecordingStimuli(grpc::ServerContext*, "
    "const dio::endpoint::StimuliStart*, grpc::ServerWriter<dio::endpoint::AudioBuffers>*): ";
const std::string kRecordingBegin = "TRACE Enter " + kRecording;
const std::string kRecordingEnd = "TRACE Leave " + kRecording;
const std::string kStreaming =
    "virtual grpc::Status RpcHandler::StartStreaming(grpc::ServerContext*, "
    "grpc::ServerReaderWriter<dio::endpoint::AudioBuffers, dio::endpoint::AudioBuffers>*): ";
const std::string kStreamingBegin = "TRACE Enter " + kStreaming;
const std::string kStreamingEnd = "TRACE Leave " + kStreaming;

}  // namespace

// ---- StartRecordingStimuli ----

TEST_F(RpcHandlerRecordingTest, RecordsForAsLongAsTheStimulusAndItsTail) {
    start();
    prepare(sweepThrough({0, 1}));
    const auto begin = Clock::now();
    const auto recording = startRecording();
    AudioBuffers message;
    std::size_t messages = 0;
    auto last = begin;
    while (recording->next(&message)) {
        ASSERT_EQ(message.buffers_size(), 1);
        EXPECT_EQ(message.buffers(0).samples_size(), 128);
        ++messages;
        last = Clock::now();
    }
    EXPECT_EQ(recording->finish(), "OK");
    EXPECT_GE(last - begin, kTail - 400ms) << "the tail is recorded as well";
    EXPECT_GE(Clock::now() - begin, kTail);
    EXPECT_GT(messages, 10U) << "each takes 20 ms";
    EXPECT_THAT(playedSpeakers(), ElementsAre(0, 1));
    EXPECT_TRUE(microphoneIsFree());
    EXPECT_TRUE(logged(kRecordingEnd + "RETURN: OK"));
}

TEST_F(RpcHandlerRecordingTest, OpensTheMicrophoneOfTheConfiguration) {
    description.micRecordSampleRate = 44100;
    start();
    prepare(sweepThrough({0}, 1));
    EXPECT_EQ(startRecording()->finish(), "OK");
    ASSERT_EQ(microphone().devicesMade().size(), 1U);
    EXPECT_EQ(microphone().devicesMade().front().name, "mic");
    EXPECT_EQ(microphone().devicesMade().front().sampleRate, 44100);
}

TEST_F(RpcHandlerRecordingTest, RefusesToRecordWhenNothingIsPreparedAndLeavesTheMicrophoneAlone) {
    start();
    EXPECT_EQ(startRecording()->finish(), "INVALID_ARGUMENT \"Unknown stimuli type.\"");
    EXPECT_THAT(microphone().requests(), IsEmpty());
    EXPECT_THAT(CallLog::instance().calls(), IsEmpty());
    prepare(sweepThrough({0}, 1));
    EXPECT_EQ(startRecording()->finish(), "OK") << "the measurement is free again";
}

TEST_F(RpcHandlerRecordingTest, RefusesToRecordWhatCannotBePlayed) {
    start();
    prepare(sweepThrough({0}, 2));
    EXPECT_EQ(startRecording()->finish(), "INVALID_ARGUMENT \"Stimuli variant out of range\"");
    prepare(sweepThrough({7}));
    EXPECT_EQ(startRecording()->finish(), "INVALID_ARGUMENT \"Speaker index out of range\"");
    EXPECT_THAT(microphone().requests(), IsEmpty());
}

TEST_F(RpcHandlerRecordingTest, RefusesASecondRecordingAtOnce) {
    start();
    holdPlayback();
    const auto first = startRecording();
    ASSERT_TRUE(eventually(isPlaying));
    const auto begin = Clock::now();
    EXPECT_EQ(startRecording()->finish(), "RESOURCE_EXHAUSTED \"Measurement session active!\"");
    EXPECT_LT(Clock::now() - begin, 1s);
    EXPECT_TRUE(logged("ERROR Measurement is occupied by another caller!"));
    sender().letAllThrough();
    EXPECT_EQ(first->finish(), "OK");
}

TEST_F(RpcHandlerRecordingTest, StopsEverythingWhenTheClientCancels) {
    start();
    holdPlayback();
    const auto recording = startRecording();
    sender().letThrough();
    ASSERT_TRUE(eventually([] { return sender().sends() == 1 && isPlaying(); }));
    recording->cancel();
    EXPECT_THAT(recording->finish(), HasSubstr("CANCELLED"));
    std::this_thread::sleep_for(50ms);  // the cancellation reaches the server on its own way
    sender().letAllThrough();
    EXPECT_TRUE(logs(kRecordingEnd + "RETURN: CANCELLED"));
    EXPECT_LE(sender().sends(), 3U);
    EXPECT_TRUE(microphoneIsFree());
    EXPECT_THAT(CallLog::instance().calls(), Contains("mixing on"));
}

TEST_F(RpcHandlerRecordingTest, EndsWithTheStimulusThatThePlayerStops) {
    start();
    prepare(noiseThrough({0}));
    const auto recording = startRecording();
    ASSERT_TRUE(eventually([] { return sender().sends() > 3; }));
    PlayLogicInterface::playerInstance()->stop(VeskPlayLogicStopReason::UserRequested);
    EXPECT_EQ(recording->finish(), "OK");
    EXPECT_TRUE(microphoneIsFree());
}

TEST_F(RpcHandlerRecordingTest, GivesTheMicrophoneBackWhenPlayingThrows) {
    start();
    sender().throwOn("send");
    prepare(sweepThrough({0}));
    EXPECT_EQ(startRecording()->finish(), "UNKNOWN \"Unexpected error in RPC handling\"");
    EXPECT_TRUE(microphoneIsFree());
    prepare(sweepThrough({0}, 1));
    EXPECT_EQ(startRecording()->finish(), "OK") << "no mutex is left held";
}

TEST_F(RpcHandlerRecordingTest, PlaysAlthoughTheMicrophoneCannotBeOpened) {
    microphone().refuseToOpen();
    start();
    prepare(sweepThrough({0}, 1));
    const auto recording = startRecording();
    AudioBuffers message;
    EXPECT_FALSE(recording->next(&message));
    EXPECT_EQ(recording->finish(), "OK");
    EXPECT_EQ(sender().sends(), 1U);
    EXPECT_TRUE(microphoneIsFree());
}

TEST_F(RpcHandlerRecordingTest, PlaysOnWhenTheMicrophoneIsUnplugged) {
    microphone().unplug();
    start();
    prepare(sweepThrough({0}, 1));
    EXPECT_EQ(startRecording()->finish(), "OK");
    EXPECT_TRUE(logged("ERROR Failed to read data from input device"));
    EXPECT_TRUE(microphoneIsFree());
}

TEST_F(RpcHandlerRecordingTest, IsNotKeptOutByAPlayback) {
    start();
    holdPlayback();
    const auto playback = startStimuli();
    ASSERT_TRUE(eventually(isPlaying));
    const auto recording = startRecording();
    AudioBuffers message;
    EXPECT_TRUE(recording->next(&message)) << "while the other still plays";
    sender().letAllThrough();
    EXPECT_EQ(recording->finish(), "OK");
    EXPECT_EQ(playback->finish(), "OK");
    EXPECT_EQ(CallLog::instance().calls().back(), "close");
}

TEST_F(RpcHandlerRecordingTest, StopsTheServerInTheMiddleOfARecording) {
    start();
    prepare(noiseThrough({0}));
    const auto recording = startRecording();
    AudioBuffers message;
    ASSERT_TRUE(recording->next(&message));
    const auto begin = Clock::now();
    activateNode(VeskDiracRestartServerPath());
    EXPECT_LT(Clock::now() - begin, kTail + 3s);
    EXPECT_NE(recording->finish(), "OK");
    EXPECT_TRUE(microphoneIsFree());
}

// ---- StartStreaming ----

TEST_F(RpcHandlerRecordingTest, StreamsUntilTheClientCancels) {
    start();
    StreamingClient client;
    AudioBuffers message;
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(client.next(&message));
        ASSERT_EQ(message.buffers_size(), 1);
        EXPECT_EQ(message.buffers(0).samples_size(), 128);
    }
    client.cancel();
    client.finish();
    EXPECT_TRUE(eventually(microphoneIsFree));
    EXPECT_TRUE(logs(kStreamingEnd + "RETURN: OK"));
    EXPECT_THAT(CallLog::instance().calls(), IsEmpty()) << "nothing is played";
}

TEST_F(RpcHandlerRecordingTest, StreamsAgain) {
    start();
    for (int i = 0; i < 3; ++i) {
        StreamingClient client;
        AudioBuffers message;
        EXPECT_TRUE(client.next(&message));
        client.cancel();
        client.finish();
    }
}

TEST_F(RpcHandlerRecordingTest, ReadsNothingFromTheClient) {
    start();
    StreamingClient client;
    AudioBuffers message;
    ASSERT_TRUE(client.next(&message));
    EXPECT_TRUE(client.write());
    EXPECT_TRUE(client.next(&message));
    client.cancel();
    client.finish();
}

TEST_F(RpcHandlerRecordingTest, StreamsWhenTheRecordingHasFinished) {
    start();
    holdPlayback();
    const auto recording = startRecording();
    ASSERT_TRUE(eventually(isPlaying));
    StreamingClient client;
    ASSERT_TRUE(logs(kStreamingBegin));
    EXPECT_EQ(microphone().devicesMade().size(), 1U) << "only the recording has the microphone";
    sender().letAllThrough();
    EXPECT_EQ(recording->finish(), "OK");
    AudioBuffers message;
    EXPECT_TRUE(client.next(&message));
    EXPECT_THAT(microphone().requests(),
                ElementsAre("acquire Dirac 3", "release Dirac 3", "acquire Dirac 3"));
    client.cancel();
    client.finish();
}

TEST_F(RpcHandlerRecordingTest, RecordsWhenTheStreamHasEnded) {
    start();
    prepare(sweepThrough({0}, 1));
    StreamingClient client;
    AudioBuffers message;
    ASSERT_TRUE(client.next(&message));
    const auto recording = startRecording();
    ASSERT_TRUE(logs(kRecordingBegin));
    EXPECT_EQ(sender().sends(), 0U) << "the stimulus waits for the microphone";
    client.cancel();
    client.finish();
    EXPECT_EQ(recording->finish(), "OK");
    EXPECT_EQ(sender().sends(), 1U);
}

TEST_F(RpcHandlerRecordingTest, ForgetsAStreamThatIsCancelledWhileItWaits) {
    start();
    StreamingClient first;
    AudioBuffers message;
    ASSERT_TRUE(first.next(&message));
    {
        StreamingClient second;
        ASSERT_TRUE(eventually([this] { return countLogged(kStreamingBegin) == 2; }));
        second.cancel();
        second.finish();
    }
    EXPECT_TRUE(logs(kStreamingEnd + "RETURN: OK"));
    EXPECT_EQ(microphone().devicesMade().size(), 1U);
    EXPECT_TRUE(first.next(&message));
    first.cancel();
    first.finish();
}

TEST_F(RpcHandlerRecordingTest, ForgetsARecordingThatIsCancelledWhileItWaits) {
    start();
    prepare(sweepThrough({0}, 1));
    StreamingClient stream;
    AudioBuffers message;
    ASSERT_TRUE(stream.next(&message));
    const auto recording = startRecording();
    ASSERT_TRUE(logs(kRecordingBegin));
    recording->cancel();
    EXPECT_THAT(recording->finish(), HasSubstr("CANCELLED"));
    EXPECT_TRUE(logs(kRecordingEnd + "RETURN: CANCELLED"));
    EXPECT_THAT(CallLog::instance().calls(), IsEmpty()) << "nothing was played";
    stream.cancel();
    stream.finish();
}

TEST_F(RpcHandlerRecordingTest, StopsTheServerInTheMiddleOfStreams) {
    start();
    StreamingClient first;
    StreamingClient second;  // waits for the first
    AudioBuffers message;
    ASSERT_TRUE(eventually([] { return microphone().openDevices() == 1; }));
    const auto begin = Clock::now();
    activateNode(VeskDiracRestartServerPath());
    EXPECT_LT(Clock::now() - begin, 3s);
    first.finish();
    second.finish();
    EXPECT_TRUE(microphoneIsFree());
}

TEST_F(RpcHandlerRecordingTest, FreesTheMicrophoneOfAClientThatNeverReads) {
    start();
    microphone().deliverSilence();
    StreamingClient client;
    std::size_t before = 0;
    // Until a write waits for the client.
    ASSERT_TRUE(eventually([&before] {
        std::this_thread::sleep_for(100ms);
        const std::size_t now = microphone().reads().size();
        return std::exchange(before, now) == now && now > 0;
    }));
    client.cancel();
    EXPECT_TRUE(eventually(microphoneIsFree));
    client.finish();
}

TEST_F(RpcHandlerRecordingTest, RefusesToRecordBeforeTheMicrophoneIsKnown) {
    start();
    const auto device = ::DeviceInfo();
    RpcHandler handler(device, &worker(), nullptr);
    EXPECT_EQ(outcome(handler.StartStreaming(nullptr, nullptr)),
              "FAILED_PRECONDITION \"The microphone is not known yet\"");
}
