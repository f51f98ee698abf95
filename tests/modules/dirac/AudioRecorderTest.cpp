#include "modules/dirac/AudioRecorder.h"
#include "modules/dirac/StandInMicrophone.h"
#include "platform/cm/CurrentTree.h"
#include "platform/cm/Tree.h"
#include "platform/endpoint/GrpcServer.h"
#include "support/LogCapture.h"
#include "support/WaitFor.h"

#include <QtEndian>
#include <gmock/gmock.h>
#include <grpcpp/grpcpp.h>

#include <cmath>
#include <future>
#include <limits>

using dio::endpoint::AudioBuffers;
using dio::endpoint::EndpointDevice;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr qint32 kLargest = std::numeric_limits<qint32>::max();
constexpr qint32 kSmallest = std::numeric_limits<qint32>::min();

QByteArray blockOf(const std::vector<qint32>& samples) {
    QByteArray block(static_cast<int>(samples.size() * sizeof(qint32)), '\0');
    qToLittleEndian<qint32>(samples.data(), static_cast<qsizetype>(samples.size()), block.data());
    return block;
}

std::vector<float> samplesOf(const AudioBuffers& message) {
    EXPECT_EQ(message.buffers_size(), 1);
    EXPECT_EQ(message.buffers(0).mic(), 0U);
    const auto& samples = message.buffers(0).samples();
    return {samples.begin(), samples.end()};
}

/// Records for each of its clients for as long as the client wants.
class RecordingService : public EndpointDevice::Service {
public:
    grpc::Status StartRecordingStimuli(grpc::ServerContext* context,
                                       const dio::endpoint::StimuliStart* /*request*/,
                                       grpc::ServerWriter<AudioBuffers>* writer) override {
        return record(*context, writer);
    }

    grpc::Status StartStreaming(
        grpc::ServerContext* context,
        grpc::ServerReaderWriter<AudioBuffers, AudioBuffers>* stream) override {
        return record(*context, stream);
    }

private:
    template <typename Stream>
    static grpc::Status record(const grpc::ServerContext& context, Stream* stream) {
        const auto recorder = AudioRecorderFactory(QStringLiteral("mic"), 48000).create(stream);
        while (!context.IsCancelled())
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        return grpc::Status::OK;
    }
};

class AudioRecorderTest : public testing::Test {
protected:
    AudioRecorderTest() { microphone_.reset(); }
    ~AudioRecorderTest() override { stopServer(); }

    StandInMicrophone& microphone() { return microphone_; }
    const LogCapture& log() const { return log_; }

    static grpc::ServerWriter<AudioBuffers>* nobody() { return nullptr; }

    static void recordUntilUnplugged() {
        AudioRecorder recorder(QStringLiteral("mic"), 48000, nobody());
        EXPECT_TRUE(recorder.wait());
    }

    void startServer() {
        server_ = platform::GrpcServer::start(service_, "127.0.0.1", 0);
        stub_ = EndpointDevice::NewStub(grpc::CreateChannel(
            "127.0.0.1:" + std::to_string(server_->port()), grpc::InsecureChannelCredentials()));
    }
    void stopServer() {
        context_.TryCancel();
        server_.reset();
    }

    std::unique_ptr<grpc::ClientReader<AudioBuffers>> record() {
        startServer();
        return stub_->StartRecordingStimuli(&context_, {});
    }
    std::unique_ptr<grpc::ClientReaderWriter<AudioBuffers, AudioBuffers>> stream() {
        startServer();
        return stub_->StartStreaming(&context_);
    }
    grpc::ClientContext& context() { return context_; }

    template <typename Stream>
    static std::vector<float> next(Stream& stream) {
        AudioBuffers message;
        EXPECT_TRUE(stream.Read(&message));
        return samplesOf(message);
    }

private:
    StandInMicrophone& microphone_{StandInMicrophone::instance()};
    const std::shared_ptr<platform::Tree> tree_{std::make_shared<platform::Tree>()};
    const platform::CurrentTree currentTree_{tree_};
    const LogCapture log_{"Dirac"};
    const std::shared_ptr<RecordingService> service_{std::make_shared<RecordingService>()};
    std::unique_ptr<platform::GrpcServer> server_;
    std::unique_ptr<EndpointDevice::Stub> stub_;
    grpc::ClientContext context_;
};

}  // namespace

// ---- Blocks and messages ----

TEST(AudioRecorderMessageTest, HoldsTheSamplesOfABlockInOrder) {
    EXPECT_THAT(samplesOf(AudioRecorder::messageOf(blockOf({0, 1 << 30, -(1 << 29), 1}))),
                ElementsAre(0.0F, 0.5F, -0.25F, std::ldexp(1.0F, -31)));
}

TEST(AudioRecorderMessageTest, GivesTheSmallestSampleAsExactlyMinusOne) {
    EXPECT_THAT(samplesOf(AudioRecorder::messageOf(blockOf({kSmallest}))), ElementsAre(-1.0F));
}

TEST(AudioRecorderMessageTest, GivesTheLargestSampleAsJustBelowOne) {
    EXPECT_THAT(samplesOf(AudioRecorder::messageOf(blockOf({kLargest, kLargest - 128}))),
                Each(std::nextafter(1.0F, 0.0F)));
}

TEST(AudioRecorderMessageTest, LeavesOutBytesThatAreNoWholeSample) {
    QByteArray block = blockOf({1 << 30, 1 << 29});
    block.append("\x7f\x7f\x7f", 3);
    EXPECT_THAT(samplesOf(AudioRecorder::messageOf(block)), ElementsAre(0.5F, 0.25F));
    EXPECT_THAT(samplesOf(AudioRecorder::messageOf(QByteArray(3, 'x'))), IsEmpty());
}

TEST(AudioRecorderMessageTest, ReadsLittleEndianSamples) {
    EXPECT_THAT(samplesOf(AudioRecorder::messageOf(QByteArray::fromHex("00000040"))),
                ElementsAre(0.5F));
}

// ---- The device ----

TEST_F(AudioRecorderTest, OpensTheMicrophoneAsAMonoDeviceOfIntegers) {
    microphone().unplug();  // nothing is read, and nobody is sent anything
    const AudioRecorder recorder(QStringLiteral("hw:1,0"), 44100, nobody());
    const auto devices = microphone().devicesMade();
    ASSERT_EQ(devices.size(), 1U);
    EXPECT_EQ(devices[0].name, "hw:1,0");
    EXPECT_EQ(devices[0].sampleRate, 44100);
    EXPECT_EQ(devices[0].channels, 1U);
    EXPECT_EQ(devices[0].format, "S32_LE");
    EXPECT_EQ(devices[0].period, 10);
    EXPECT_EQ(devices[0].buffer, 100);
}

TEST_F(AudioRecorderTest, SendsNothingWhenTheDeviceCannotBeOpenedAndGivesTheMicrophoneBack) {
    microphone().refuseToOpen();
    AudioRecorder recorder(QStringLiteral("mic"), 48000, nobody());
    EXPECT_FALSE(recorder.isRunning());
    EXPECT_EQ(microphone().openDevices(), 1) << "until it is stopped";
    recorder.stop();
    EXPECT_THAT(microphone().reads(), IsEmpty());
    EXPECT_EQ(microphone().openDevices(), 0);
    EXPECT_THAT(microphone().requests(), ElementsAre("acquire Dirac 3", "release Dirac 3"));
}

TEST_F(AudioRecorderTest, StopsOnce) {
    microphone().refuseToOpen();
    {
        AudioRecorder recorder(QStringLiteral("mic"), 48000, nobody());
        recorder.stop();
        recorder.stop();
    }
    EXPECT_THAT(microphone().requests(), ElementsAre("acquire Dirac 3", "release Dirac 3"));
}

TEST_F(AudioRecorderTest, StopsOnceAfterItHasRecorded) {
    microphone().unplug();
    AudioRecorder recorder(QStringLiteral("mic"), 48000, nobody());
    EXPECT_TRUE(recorder.wait());
    recorder.stop();
    recorder.stop();
    EXPECT_THAT(microphone().reads(), ElementsAre(128));
    EXPECT_EQ(microphone().openDevices(), 0);
    EXPECT_THAT(microphone().requests(), ElementsAre("acquire Dirac 3", "release Dirac 3"));
}

TEST_F(AudioRecorderTest, StopsAtOnceWhenTheDeviceWasNotOpened) {
    microphone().refuseToOpen();
    AudioRecorder recorder(QStringLiteral("mic"), 48000, nobody());
    auto stopping = std::async(std::launch::async, [&] { recorder.stop(); });
    EXPECT_EQ(stopping.wait_for(std::chrono::seconds(2)), std::future_status::ready);
}

TEST_F(AudioRecorderTest, StopsWhenItIsDestroyed) {
    microphone().refuseToOpen();
    { const AudioRecorder recorder(QStringLiteral("mic"), 48000, nobody()); }
    EXPECT_EQ(microphone().openDevices(), 0);
    EXPECT_THAT(microphone().requests(), ElementsAre("acquire Dirac 3", "release Dirac 3"));
}

TEST_F(AudioRecorderTest, EndsItsThreadWhenAReadFails) {
    microphone().unplug();
    AudioRecorder recorder(QStringLiteral("mic"), 48000, nobody());
    EXPECT_TRUE(recorder.wait());
    EXPECT_TRUE(log().contains("ERROR Failed to read data from input device"));
    EXPECT_EQ(microphone().openDevices(), 1) << "until it is stopped";
    recorder.stop();
    EXPECT_EQ(microphone().openDevices(), 0);
}

TEST_F(AudioRecorderTest, ReadsFiveHundredAndTwelveBytesAtATime) {
    microphone().unplug();
    recordUntilUnplugged();
    EXPECT_THAT(microphone().reads(), ElementsAre(128));
}

TEST_F(AudioRecorderTest, ReadsAsManyFramesAsTheDeviceHasInThem) {
    microphone().setSizes(2, 2);
    microphone().unplug();
    recordUntilUnplugged();
    EXPECT_THAT(microphone().reads(), ElementsAre(128));
}

TEST_F(AudioRecorderTest, DoesNotDivideByTheSizeThatADeviceDoesNotKnow) {
    microphone().setSizes(0, 1);
    microphone().unplug();
    recordUntilUnplugged();
    microphone().setSizes(4, 0);
    recordUntilUnplugged();
    EXPECT_THAT(microphone().reads(), ElementsAre(0, 0));
}

// ---- The power manager ----

TEST_F(AudioRecorderTest, RecordsAlthoughTheMicrophoneIsRefused) {
    microphone().refuse(QStringLiteral("Somebody is on the phone"));
    microphone().deliver(blockOf({1 << 30}));
    const auto reader = record();
    EXPECT_THAT(next(*reader), ElementsAre(0.5F));
    EXPECT_TRUE(
        log().contains("ERROR Failed to get Microphone resource: Somebody is on the phone"));
}

TEST_F(AudioRecorderTest, RecordsAfterTenSecondsWithoutAnAnswer) {
    using Clock = std::chrono::steady_clock;
    microphone().answerNothing();
    microphone().unplug();
    const auto begin = Clock::now();
    AudioRecorder recorder(QStringLiteral("mic"), 48000, nobody());
    EXPECT_GE(Clock::now() - begin, std::chrono::seconds(10));
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(30));
    EXPECT_TRUE(log().contains("ERROR Acquisition of the microphone resource timed out"));
    EXPECT_TRUE(recorder.wait());
    EXPECT_THAT(microphone().reads(), ElementsAre(128));
}

// ---- The stream ----

TEST_F(AudioRecorderTest, WritesEachBlockToARecordingInAMessageOfItsOwn) {
    microphone().deliver(blockOf({1 << 30}));
    microphone().deliver(blockOf({1 << 29, 1 << 28}));
    const auto reader = record();
    EXPECT_THAT(next(*reader), ElementsAre(0.5F));
    EXPECT_THAT(next(*reader), ElementsAre(0.25F, 0.125F));
    EXPECT_EQ(next(*reader).size(), 128U);
}

TEST_F(AudioRecorderTest, WritesEachBlockToABidirectionalStream) {
    microphone().deliver(blockOf({1 << 30}));
    microphone().deliver(blockOf({1 << 29}));
    const auto both = stream();
    EXPECT_THAT(next(*both), ElementsAre(0.5F));
    EXPECT_THAT(next(*both), ElementsAre(0.25F));
}

TEST_F(AudioRecorderTest, LeavesTheStreamOpenWhenTheMicrophoneIsUnplugged) {
    microphone().deliver(blockOf({1 << 30}));
    microphone().unplug();
    const auto reader = record();
    EXPECT_THAT(next(*reader), ElementsAre(0.5F));
    ASSERT_TRUE(processEventsUntil(
        [this] { return log().contains("ERROR Failed to read data from input device"); }));
    context().TryCancel();
    AudioBuffers message;
    EXPECT_FALSE(reader->Read(&message));
    EXPECT_EQ(reader->Finish().error_code(), grpc::StatusCode::CANCELLED) << "by the client";
}

TEST_F(AudioRecorderTest, StopsAlthoughTheClientDoesNotRead) {
    microphone().deliverSilence();
    const auto reader = record();
    next(*reader);
    // Until a write waits for the client.
    std::size_t before = 0;
    ASSERT_TRUE(processEventsUntil([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        return std::exchange(before, microphone().reads().size()) == microphone().reads().size();
    }));
    context().TryCancel();
    stopServer();
    EXPECT_EQ(microphone().openDevices(), 0);
}
