// A whole device in a room: what it plays comes back through its microphone.

#include "modules/dirac/Fourier.h"
#include "modules/dirac/MeasurementFixture.h"
#include "modules/dirac/StimulusGenerators.h"
#include "platform/PlatformPaths.h"
#include "platform/endpoint/FreezableRelay.h"
#include "platform/services/PowerManager.h"
#include "roomsim/AlsaPcm.h"
#include "sdk/cm/VeskPaths.h"
#include "sdk/player/PlayLogicInterface.h"
#include "sdk/smt/Sender.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <future>
#include <optional>
#include <thread>

using namespace dio::endpoint;
using namespace std::chrono_literals;
using testing::HasSubstr;

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned short kCalibrationPort = 5002;
constexpr auto kChunkLength = 170ms;  // as played
constexpr auto kMicrophoneWait = 10s;
constexpr auto kOnTheWay = 400ms;  // of audio at most, between the generator and the player

/// A client that streams the microphone.
class StreamingClient {
public:
    StreamingClient() : stream_(client_.stub().StartStreaming(&context_)) {}
    bool next(AudioBuffers* message) { return stream_->Read(message); }
    void cancel() { context_.TryCancel(); }
    void finish() {
        AudioBuffers message;
        while (stream_->Read(&message)) {
        }
        stream_->Finish();
    }

private:
    CalibrationClient client_;
    grpc::ClientContext context_;
    const std::unique_ptr<grpc::ClientReaderWriter<AudioBuffers, AudioBuffers>> stream_;
};

class RoomMeasurementTest : public MeasurementFixture {
protected:
    RoomMeasurementTest() { description.stimuliSampleRate = 48000; }
    ~RoomMeasurementTest() override { stopDevice(); }

    void enter(const nlohmann::json& room, const Signals& responses) {
        files_.emplace(room);
        files_->addWav("responses.wav", 48000, responses);
        alsa_.emplace(*files_);
        description.playbackDeviceName = QStringLiteral("room");
        description.micDeviceName = QStringLiteral("room");
    }

    static void append(const AudioBuffers& message, std::vector<float>& samples) {
        const auto& block = message.buffers(0).samples();
        samples.insert(samples.end(), block.begin(), block.end());
    }

    static VeskPlayLogicState::Enum playerState() {
        return PlayLogicInterface::playerInstance()->data().state();
    }
    static bool playerIsStopped() { return playerState() == VeskPlayLogicState::Stopped; }

    /// A recording that the device cannot make is an empty one.
    void expectNothingToBeRecorded() {
        startDevice();
        activateFilter();
        prepare(noiseThrough({0}));
        const auto recording = startRecording();
        AudioBuffers message;
        EXPECT_FALSE(recording->next(&message));
        EXPECT_EQ(recording->finish(), "OK");
        expectAllAsBefore();
    }

    static bool clientIsConnected() {
        return valueAt(VeskTalvorCorbelDiracClientStatusPath()).bool_();
    }

    /// Nothing is left of a measurement.
    static void expectAllAsBefore() {
        EXPECT_TRUE(eventually(microphoneIsFree));
        expectPlayerAsBefore();
    }
    static void expectPlayerAsBefore() {
        EXPECT_TRUE(eventually([] { return playerIsStopped(); }));
        EXPECT_TRUE(eventually([] { return !subMixIsDisabled(); }));
        EXPECT_TRUE(eventually([] { return image().bypass == 0; })) << "the filter is on";
        EXPECT_TRUE(eventually([] { return runtimeSlots() == settings(); }));
    }

    static QVariantHash holders() {
        return platform::PowerManagerResources(valueAt(platform::powerManagerResourcesPath()))
            .holders();
    }
    static bool microphoneIsFree() { return holders().isEmpty(); }

    /// The power manager says this of the microphone.
    void describeMicrophone(platform::ResourceDescription resource) {
        resource.name = QStringLiteral("microphone");
        description.resources = {resource};
    }

    /// Streams the microphone for a moment; what is heard does not matter.
    static void stream() {
        StreamingClient client;
        AudioBuffers message;
        EXPECT_TRUE(client.next(&message));
        client.cancel();
        client.finish();
    }

    /// Records noise for a moment.
    void record() {
        prepare(noiseThrough({0}));
        const auto recording = startRecording();
        AudioBuffers message;
        EXPECT_TRUE(recording->next(&message));
        EXPECT_TRUE(eventually([] { return image().bypass == 1; }));
        recording->cancel();
        recording->finish();
    }

    /// Has the device replace its server, and waits for the new one.
    void restartServer() {
        VeskDiracConfig config = valueAt(VeskDiracConfigPath()).diracConfig();
        config.setNumberOfSlots(config.numberOfSlots() + 1);
        write(VeskDiracConfigPath(), VeskValue::of(config));
        ASSERT_TRUE(eventually([this, &config] {
            dio::endpoint::DeviceInfo info;
            return call(&Stub::GetDeviceInfo, Void(), &info).ok() &&
                   info.num_slots() == config.numberOfSlots();
        }));
    }

    static bool subMixIsDisabled() { return valueAt(platform::subMixDisabledPath()).bool_(); }

private:
    std::optional<RoomFiles> files_;
    std::optional<AlsaRoom> alsa_;
};

/// The response that makes `heard` of `played`; both shorter than `size`, a power of two.
std::vector<double> responseBetween(const std::vector<float>& played,
                                    const std::vector<float>& heard, std::size_t size) {
    const auto input = spectrumOf(played, size);
    auto response = spectrumOf(heard, size);
    for (std::size_t k = 0; k < size; ++k)
        response[k] /= input[k];
    fourierTransform(response, true);
    std::vector<double> samples;
    samples.reserve(size);
    for (const auto& value : response)
        samples.push_back(value.real() / static_cast<double>(size));
    return samples;
}

std::vector<float> part(const std::vector<float>& samples, std::size_t begin, std::size_t length) {
    const auto first = samples.begin() + static_cast<std::ptrdiff_t>(begin);
    return {first, first + static_cast<std::ptrdiff_t>(length)};
}

}  // namespace

TEST_F(RoomMeasurementTest, ARecordingGivesTheResponsesOfBothSpeakersBack) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread sanitizer is too slow to keep the player supplied without a gap";
#endif
    constexpr std::size_t kResponse = 4000;  // samples
    constexpr std::size_t kPass = 264'000;   // a sweep with its silence
    constexpr std::size_t kBefore = 1000;    // silence that is looked at as well
    constexpr std::size_t kTransform = 524'288;
    const Signals responses{randomResponse(kResponse, 1), randomResponse(kResponse, 2)};
    enter(measuredRoom(2), responses);
    startDevice();
    setGain(0, -12.0);
    setGain(1, -12.0);
    prepare(sweepThrough({0, 1}));

    const auto recording = startRecording();
    std::vector<float> heard;
    AudioBuffers message;
    while (recording->next(&message))
        append(message, heard);
    EXPECT_EQ(recording->finish(), "OK");

    const auto sound =
        std::ranges::find_if(heard, [](float sample) { return std::abs(sample) > 1e-8F; });
    const auto begin = static_cast<std::size_t>(sound - heard.begin());
    ASSERT_GE(begin, kBefore);
    ASSERT_GE(heard.size(), begin + 2 * kPass);
    const std::vector<float> sweep =
        generateLogSweep(10.0, 24000.0, 240'000, 24'000, 1, 48000.0, 300.0);
    const double gain = std::pow(10.0, -12.0 / 20.0);
    std::optional<std::ptrdiff_t> delay;
    for (std::size_t speaker = 0; speaker < 2; ++speaker) {
        const auto measured = responseBetween(
            sweep, part(heard, begin - kBefore + speaker * kPass, kPass), kTransform);
        const Signal& truth = responses[speaker];
        if (!delay) {
            const auto loudest = [](const auto& samples) {
                return std::ranges::max_element(samples, {},
                                                [](auto sample) { return std::abs(sample); }) -
                       samples.begin();
            };
            delay = loudest(measured) - loudest(truth);
        }
        double error = 0.0;
        double energy = 0.0;
        for (std::size_t i = 0; i < measured.size(); ++i) {
            const std::ptrdiff_t place = static_cast<std::ptrdiff_t>(i) - *delay;
            const bool inside = place >= 0 && place < static_cast<std::ptrdiff_t>(kResponse);
            const double expected =
                inside ? gain * static_cast<double>(truth[static_cast<std::size_t>(place)]) : 0.0;
            error += (measured[i] - expected) * (measured[i] - expected);
            energy += expected * expected;
        }
        EXPECT_LT(10.0 * std::log10(error / energy), -60.0) << "speaker " << speaker;
        RecordProperty("error" + std::to_string(speaker),
                       std::to_string(10.0 * std::log10(error / energy)));
    }
}

TEST_F(RoomMeasurementTest, ARecordingHoldsTheTailBehindTheSweep) {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "the thread sanitizer is too slow to keep the player supplied without a gap";
#endif
    nlohmann::json room = measuredRoom(2);
    room["pace"] = "realtime";
    enter(room, {{1.0F}, {1.0F}});
    description.stimuliSampleRate = kSampleRate;  // 0.9 s, played at 48 kHz
    startDevice();
    setGain(0, 0.0);
    prepare(sweepThrough({0}));
    const auto recording = startRecording();
    std::vector<float> heard;
    AudioBuffers message;
    while (recording->next(&message))
        append(message, heard);
    EXPECT_EQ(recording->finish(), "OK");
    const auto behind =
        std::find_if(heard.rbegin(), heard.rend(), [](float sample) { return sample != 0.0F; }) -
        heard.rbegin();
    ASSERT_LT(behind, static_cast<std::ptrdiff_t>(heard.size())) << "nothing was heard";
    EXPECT_GE(behind, 48 * (kTail - kOnTheWay).count()) << "frames";
    RecordProperty("behind", static_cast<int>(behind));
}

TEST_F(RoomMeasurementTest, NoiseIsHeardUntilTheClientCancels) {
    enter(measuredRoom(2), {{1.0F}, {1.0F}});
    startDevice();
    setGain(0, 0.0);
    prepare(noiseThrough({0}));
    const auto recording = startRecording();
    AudioBuffers message;
    float loudest = 0.0F;
    while (loudest < 0.5F && recording->next(&message))
        for (const float sample : message.buffers(0).samples())
            loudest = std::max(loudest, std::abs(sample));
    EXPECT_GE(loudest, 0.5F);
    EXPECT_EQ(playerState(), VeskPlayLogicState::Playing);
    EXPECT_TRUE(subMixIsDisabled());
    recording->cancel();
    EXPECT_THAT(recording->finish(), HasSubstr("CANCELLED"));
    EXPECT_TRUE(eventually([] { return playerIsStopped() && !subMixIsDisabled(); }));
}

TEST_F(RoomMeasurementTest, ASweepIsOverWhenItHasBeenHeard) {
    description.stimuliSampleRate = kSampleRate;  // 0.9 s, played at 48 kHz
    startDevice();
    prepare(sweepThrough({0}));
    const auto begin = Clock::now();
    std::string result;
    const auto progress = progressOf(*startStimuli(), &result);
    EXPECT_EQ(result, "OK");
    EXPECT_GE(Clock::now() - begin, 900ms + kTail - kOnTheWay);
    EXPECT_EQ(progress.size(), kSweepChunks + 2);
    EXPECT_TRUE(playerIsStopped());
    EXPECT_FALSE(subMixIsDisabled());
}

TEST_F(RoomMeasurementTest, NoiseEndsWhenThePlayerIsStopped) {
    startDevice();
    prepare(noiseThrough({0}));
    const auto playback = startStimuli();
    ASSERT_TRUE(eventually([] { return playerState() == VeskPlayLogicState::Playing; }));
    const auto begin = Clock::now();
    PlayLogicInterface::playerInstance()->stop(VeskPlayLogicStopReason::UserRequested);
    std::string result;
    EXPECT_EQ(progressOf(*playback, &result).back(), 1.0F);
    EXPECT_EQ(result, "OK");
    EXPECT_LT(Clock::now() - begin, kTail + 2s);
    EXPECT_FALSE(subMixIsDisabled());
}

TEST_F(RoomMeasurementTest, NoiseEndsWhenTheSoundDeviceIsMissing) {
    description.playbackDeviceName = QStringLiteral("no such device");
    startDevice();
    prepare(noiseThrough({0}));
    std::string result;
    EXPECT_EQ(progressOf(*startStimuli(), &result).back(), 1.0F);
    EXPECT_EQ(result, "OK");
    EXPECT_TRUE(
        logged("WARN Player stopped while stimuli generation is active, stopping generator"));
    EXPECT_FALSE(subMixIsDisabled());
}

TEST_F(RoomMeasurementTest, DoesNotPlayNoiseFasterThanItSoundsWhenTheStreamCannotBeOpened) {
    smt::Sender occupier;
    ASSERT_TRUE(occupier.initializeSender("smtDiracPlayerSocket", "", "", 0,
                                          smt::TimeSyncProtocol::None, smt::NanomsgProtocol::Pair));
    startDevice();
    prepare(noiseThrough({0}));
    const auto playback = startStimuli();
    const auto begin = Clock::now();
    Progress progress;
    for (int message = 0; message < 1 + 6; ++message)
        EXPECT_TRUE(playback->next(&progress));
    EXPECT_GE(Clock::now() - begin, 5 * kChunkLength * 9 / 10) << "the first chunk does not wait";
    EXPECT_TRUE(logged("ERROR Failed to initalize smt Sender"));
    playback->cancel();
    playback->finish();
}

TEST_F(RoomMeasurementTest, ARecordingThatThePlayersStopEndsLeavesAllAsBefore) {
    enter(measuredRoom(2), {{1.0F}, {1.0F}});
    startDevice();
    activateFilter();
    prepare(noiseThrough({0}));
    const auto recording = startRecording();
    AudioBuffers message;
    ASSERT_TRUE(recording->next(&message));
    ASSERT_TRUE(eventually([] { return playerState() == VeskPlayLogicState::Playing; }));
    EXPECT_EQ(image().bypass, 1U);
    EXPECT_FALSE(microphoneIsFree());
    PlayLogicInterface::playerInstance()->stop(VeskPlayLogicStopReason::UserRequested);
    EXPECT_EQ(recording->finish(), "OK");
    expectAllAsBefore();
}

TEST_F(RoomMeasurementTest, ARecordingWithMissingDevicesEndsAndLeavesAllAsBefore) {
    description.playbackDeviceName = QStringLiteral("no such device");
    description.micDeviceName = QStringLiteral("no such device");
    expectNothingToBeRecorded();
}

TEST_F(RoomMeasurementTest, ARecordingWithBusyDevicesEndsAndLeavesAllAsBefore) {
    enter(measuredRoom(2), {{1.0F}, {1.0F}});
    const AlsaPcm player(SND_PCM_STREAM_PLAYBACK, {2});
    const AlsaPcm recorder(SND_PCM_STREAM_CAPTURE, {1});
    expectNothingToBeRecorded();
}

TEST_F(RoomMeasurementTest, AServerThatIsRestartedDuringEachKindOfStreamServesTheNext) {
    enter(measuredRoom(2), {{1.0F}, {1.0F}});
    startDevice();
    activateFilter();
    {
        prepare(noiseThrough({0}));
        const auto playback = startStimuli();
        ASSERT_TRUE(eventually([] { return playerState() == VeskPlayLogicState::Playing; }));
        restartServer();
        EXPECT_NE(playback->finish(), "OK");
        expectAllAsBefore();
    }
    {
        prepare(noiseThrough({0}));
        const auto recording = startRecording();
        AudioBuffers message;
        ASSERT_TRUE(recording->next(&message));
        restartServer();
        EXPECT_NE(recording->finish(), "OK");
        expectAllAsBefore();
    }
    {
        StreamingClient streaming;
        AudioBuffers message;
        ASSERT_TRUE(streaming.next(&message));
        restartServer();
        streaming.finish();
        expectAllAsBefore();
    }
    for (int client = 0; client < 2; ++client) {
        grpc::ClientContext context;
        const auto notifications = stub().Notifications(&context);
        NotificationInfo message;
        ASSERT_TRUE(notifications->Read(&message));
        ASSERT_TRUE(eventually([] { return clientIsConnected(); }));
        restartServer();
        while (notifications->Read(&message)) {
        }
        EXPECT_FALSE(notifications->Finish().ok());
        EXPECT_TRUE(eventually([] { return !clientIsConnected(); }));
    }
    expectAllAsBefore();
}

TEST_F(RoomMeasurementTest, StopsTheServerWhileNoiseSounds) {
    startDevice();
    prepare(noiseThrough({0}));
    const auto playback = startStimuli();
    ASSERT_TRUE(eventually([] { return playerState() == VeskPlayLogicState::Playing; }));
    const auto begin = Clock::now();
    stopDevice();
    EXPECT_LT(Clock::now() - begin, kTail + 3s);
    EXPECT_NE(playback->finish(), "OK");
}

TEST_F(RoomMeasurementTest, RecordsAMicrophoneThatAnotherModuleHolds) {
    enter(measuredRoom(2), {{1.0F}, {1.0F}});
    platform::ResourceDescription held;
    held.holder = QStringLiteral("Telephone");
    describeMicrophone(held);
    startDevice();
    activateFilter();
    stream();
    record();
    expectPlayerAsBefore();
    EXPECT_EQ(countLogged("ERROR Failed to get Microphone resource: The microphone is held by "
                          "Telephone"),
              2U);
    EXPECT_EQ(holders().value(QStringLiteral("microphone")).toString(), "Telephone")
        << "what another holds is not given away";
}

TEST_F(RoomMeasurementTest, RecordsAMicrophoneThatIsRefusedAndLeavesAllAsBefore) {
    enter(measuredRoom(2), {{1.0F}, {1.0F}});
    platform::ResourceDescription refused;
    refused.behaviour = platform::ResourceBehaviour::Refused;
    refused.errorName = QStringLiteral("Broken");
    refused.errorText = QStringLiteral("The microphone is broken");
    describeMicrophone(refused);
    startDevice();
    activateFilter();
    stream();
    expectAllAsBefore();
    record();
    expectAllAsBefore();
    EXPECT_EQ(countLogged("ERROR Failed to get Microphone resource: The microphone is broken"), 2U);
}

TEST_F(RoomMeasurementTest, RecordsAMicrophoneThatNobodyAnswersForAndLeavesAllAsBefore) {
    enter(measuredRoom(2), {{1.0F}, {1.0F}});
    platform::ResourceDescription silent;
    silent.behaviour = platform::ResourceBehaviour::Silent;
    describeMicrophone(silent);
    startDevice();
    activateFilter();
    const auto begin = Clock::now();
    stream();
    EXPECT_GE(Clock::now() - begin, kMicrophoneWait);
    expectAllAsBefore();
    record();
    expectAllAsBefore();
    EXPECT_EQ(countLogged("ERROR Acquisition of the microphone resource timed out"), 2U);
}

TEST_F(RoomMeasurementTest, SendsNothingOfAMicrophoneThatIsMissing) {
    description.micDeviceName = QStringLiteral("no such device");
    startDevice();
    StreamingClient client;
    std::thread reader([&client] {
        AudioBuffers message;
        EXPECT_FALSE(client.next(&message));
    });
    EXPECT_TRUE(logs("TRACE Leave void AudioRecorder::startRecording(const QString&, int)"));
    client.cancel();
    reader.join();
    client.finish();
}

TEST_F(RoomMeasurementTest, KeepsTheStreamOpenWhenTheMicrophoneIsUnplugged) {
    nlohmann::json room = measuredRoom(2);
    room["microphones"][0]["unpluggedAfterMs"] = 300;
    enter(room, {{1.0F}, {1.0F}});
    startDevice();
    StreamingClient client;
    AudioBuffers message;
    EXPECT_TRUE(client.next(&message));
    const auto end = std::async(std::launch::async, [&client] { client.finish(); });
    EXPECT_TRUE(logs("ERROR Failed to read data from input device"));
    EXPECT_EQ(end.wait_for(300ms), std::future_status::timeout);
    EXPECT_FALSE(microphoneIsFree());
    client.cancel();
    EXPECT_TRUE(eventually([] { return microphoneIsFree(); }));
}

TEST_F(RoomMeasurementTest, AClientThatIsGoneWithoutAWordFreesTheDevice) {
    startDevice();
    activateFilter();
    prepare(noiseThrough({0}));
    FreezableRelay cable(kCalibrationPort);
    CalibrationClient client("127.0.0.1:" + std::to_string(cable.port()));
    grpc::ClientContext playing;
    grpc::ClientContext notified;
    const auto notifications = client.stub().Notifications(&notified);
    // The new client has stopped the player by then.
    ASSERT_TRUE(eventually([] { return clientIsConnected(); }));
    const auto playback = client.stub().StartStimuli(&playing, startAt(0));
    ASSERT_TRUE(eventually([] { return playerState() == VeskPlayLogicState::Playing; }));
    EXPECT_EQ(image().bypass, 1U);

    const auto begin = Clock::now();
    cable.freeze();
    EXPECT_TRUE(eventually([] { return !clientIsConnected(); }));
    expectAllAsBefore();
    EXPECT_LT(Clock::now() - begin, 15s);

    prepare(sweepThrough({0}, 1));
    play();
    playing.TryCancel();
    notified.TryCancel();
}

/// Everything at once, for the sanitizers: two playbacks, gains, notifications, the microphone, and
/// a user who stops the player and changes slots.
TEST_F(RoomMeasurementTest, StaysWholeWhenEverythingHappensAtOnce) {
    nlohmann::json room = measuredRoom(2);
    room["pace"] = 1.0;
    enter(room, {{1.0F}, {1.0F}});
    startDevice();
    transferFir(1, "Sofa", {0.5F}, 1);
    activate(1);
    settle();
    prepare(noiseThrough({0, 1}));

    std::atomic<bool> over{false};
    std::vector<std::thread> clients;
    const auto during = [&](const std::function<void()>& act) {
        clients.emplace_back([&over, act] {
            while (!over)
                act();
        });
    };
    during([] { startStimuli()->finish(); });
    during([] { startRecording()->finish(); });
    during([] {
        StreamingClient client;
        std::this_thread::sleep_for(200ms);
        client.cancel();
        client.finish();
    });
    during([this] {
        setGain(0, -6.0);
        setGain(1, -3.0);
        prepare(noiseThrough({1, 0}));
        std::this_thread::sleep_for(5ms);
    });
    during([] {
        CalibrationClient client;
        grpc::ClientContext context;
        const auto stream = client.stub().Notifications(&context);
        NotificationInfo info;
        stream->Read(&info);
        std::this_thread::sleep_for(150ms);
        context.TryCancel();
        stream->Finish();
    });
    // Noise ends only when the user stops it.
    std::atomic<bool> silent{false};
    std::thread user([&silent] {
        while (!silent) {
            write(VeskDiracActiveFilterPath(), VeskValue::ofI32(-1));
            write(VeskDiracActiveFilterPath(), VeskValue::ofI32(1));
            std::this_thread::sleep_for(50ms);
            PlayLogicInterface::playerInstance()->stop(VeskPlayLogicStopReason::UserRequested);
        }
    });
    std::this_thread::sleep_for(4s);
    over = true;
    for (std::thread& client : clients)
        client.join();
    silent = true;
    user.join();
    settle();
    EXPECT_EQ(runtimeSlots(), settings());
    EXPECT_TRUE(eventually([] { return !subMixIsDisabled(); }));
}
