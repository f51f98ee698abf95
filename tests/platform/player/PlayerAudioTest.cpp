// The player with its sources and devices: what is sent is what is heard.

#include "platform/Platform.h"
#include "platform/PlatformPaths.h"
#include "platform/alsa/AlsaConfiguration.h"
#include "platform/alsa/FaultyDevices.h"
#include "platform/cm/CurrentTree.h"
#include "platform/cm/Tree.h"
#include "platform/player/Player.h"
#include "platform/player/PlayerStatistics.h"
#include "platform/player/Saturation.h"
#include "platform/player/SoundFile.h"
#include "platform/player/Volume.h"
#include "roomsim/AlsaPcm.h"
#include "roomsim/SharedRoom.h"
#include "sdk/cm/CMAbstractWorker.h"
#include "sdk/records/VeskUrl.h"
#include "sdk/smt/Sender.h"
#include "support/Eventually.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <limits>
#include <mutex>
#include <optional>
#include <random>

using namespace std::chrono_literals;
using platform::DeviceDescription;
using platform::Platform;
using testing::ElementsAre;

namespace {

using Clock = std::chrono::steady_clock;
using Samples = std::vector<std::int32_t>;

constexpr const char* kSocket = "PlayerAudioTest";

Samples noise(std::size_t count) {
    std::mt19937 random(1);
    std::uniform_int_distribution<std::int32_t> any(std::numeric_limits<std::int32_t>::min());
    Samples result(count);
    std::generate(result.begin(), result.end(), [&] { return any(random); });
    return result;
}

VeskRoles rolesOf(const QString& uri) {
    VeskMetaData metaData;
    metaData.setServiceID(VeskService_Dirac_Id());
    VeskResource resource;
    resource.setMimeType(MimeTypes::Audio::unknown());
    resource.setUri(uri);
    VeskMediaData mediaData;
    mediaData.setMetaData(metaData);
    mediaData.setResources({QVariant(resource)});
    VeskRoles roles;
    roles.setType(3);
    roles.setMediaData(mediaData);
    return roles;
}

VeskRoles streamRoles() {
    VeskUrl url(QStringLiteral("smt://play"));
    url.addQueryItem(VeskStreamerSmtParamSocketAddress(), QString::fromLatin1(kSocket));
    url.addQueryItem(VeskStreamerSmtParamDisableBuffering(), QStringLiteral("true"));
    return rolesOf(url.toString());
}

/// A module that sends a stream.
class Stream {
public:
    explicit Stream(unsigned channels, unsigned rate = 48000) {
        payloader_.setNewFormat(rate, channels, audioUtils::PcmFormat::S32);
        opened_ = sender_.initializeSender(kSocket, "", "", 0, smt::TimeSyncProtocol::None,
                                           smt::NanomsgProtocol::Pair);
        sender_.setCurrentPayloader(&payloader_);
        sender_.startNewSequence();
    }

    bool isOpen() const { return opened_; }
    smt::Sender& sender() { return sender_; }
    smt::PcmPayloader& payloader() { return payloader_; }

    void send(std::span<const std::int32_t> samples) {
        sender_.sendMediaData(miscUtils::NoTimeValue, miscUtils::NoTimeValue,
                              std::as_bytes(samples));
    }

    /// In messages of 20 ms of stereo.
    void sendAll(std::span<const std::int32_t> samples) {
        for (std::size_t i = 0; i < samples.size(); i += 1920)
            send(samples.subspan(i, std::min<std::size_t>(1920, samples.size() - i)));
    }

private:
    smt::PcmPayloader payloader_;
    smt::Sender sender_;
    bool opened_{false};
};

class PlayerAudioTest : public testing::Test {
protected:
    void startPlatform(const char* device) {
        DeviceDescription description;
        description.playbackDeviceName = QString::fromLatin1(device);
        platform.emplace(description);
        followed = platform->tree().subscribe(
            platform::playerDataPath(), [this](const platform::Change& change) {
                const std::lock_guard lock(mutex);
                const VeskPlayLogicData data(change.value.hash());
                shown.emplace_back(data.state(),
                                   data.mediaRoles().mediaData().metaData().serviceID());
            });
    }

    /// The PCM "recorder", which keeps what is played.
    void startWithRecorder() {
        recorder.emplace();
        startPlatform("recorder");
    }

    /// A simulated room, where a speaker's signal arrives at the microphone as it is.
    void enterRoom(std::size_t speakers) {
        files = std::make_unique<RoomFiles>(measuredRoom(speakers));
        files->addWav("responses.wav", 48000, Signals(speakers, Signal{1.0F}));
        alsa = std::make_unique<AlsaRoom>(*files);
    }

    /// Ends the platform, and with it the device.
    Samples recorded() {
        followed.reset();
        platform.reset();
        return recorder->recorded();
    }

    static PlayLogicInterface* player() { return PlayLogicInterface::playerInstance(); }
    static void playStream() { player()->play(streamRoles(), false); }
    static void stop() { player()->stop(VeskPlayLogicStopReason::UserRequested); }
    static VeskPlayLogicState::Enum state() { return player()->data().state(); }

    static bool awaitState(VeskPlayLogicState::Enum wanted) {
        return eventually([&] { return state() == wanted; });
    }

    static platform::PlayerStatistics statistics() {
        return platform::PlayerStatistics(CMRoot()->getValue(platform::playerStatisticsPath()));
    }

    static void setAttenuation(double decibels) {
        CMRoot()->setValue(platform::attenuationPath(), VeskValue::ofDouble(decibels), {});
    }

    QString soundFile(const char* name, const Samples& samples, int channels) const {
        const auto path = scratch.path() / name;
        writeSoundFile<std::int32_t>(path, samples, channels);
        return QString::fromStdString(path.string());
    }

    std::vector<int> shownStates() const {
        const std::lock_guard lock(mutex);
        std::vector<int> states;
        for (const auto& [one, service] : shown)
            states.push_back(one);
        return states;
    }

    /// A thread that sends 20 ms of mono after 20 ms until the stream is closed.
    std::future<void> sendEndlessly(Stream& stream) {
        return std::async(std::launch::async, [this, &stream] {
            const Samples block(960, 1000);
            while (!stopSending) {
                stream.send(block);
                ++blocksSent;
            }
        });
    }

    /// Whether more blocks are sent than a sender may be ahead of a player that takes nothing.
    bool sendsOn() const {
        const std::uint64_t before = blocksSent;
        return eventually([&] { return blocksSent >= before + 25; });
    }

    /// Expects that the player stops and the stream's sender is freed.
    void playStreamThatTheDeviceRefuses() {
        playStream();
        Stream stream(1);
        auto sending = sendEndlessly(stream);
        EXPECT_TRUE(awaitState(VeskPlayLogicState::Stopped));
        EXPECT_TRUE(sendsOn());
        stopSending = true;
        sending.get();
    }

    /// The future must be ready soon.
    static std::chrono::milliseconds timeOf(std::future<void>& work) {
        const auto begin = Clock::now();
        EXPECT_EQ(work.wait_for(20s), std::future_status::ready);
        return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
    }

    const LogCapture log{"Platform"};
    const ScratchDirectory scratch;
    std::optional<AlsaConfiguration> recorder;
    std::unique_ptr<RoomFiles> files;
    std::unique_ptr<AlsaRoom> alsa;
    mutable std::mutex mutex;
    std::vector<std::pair<int, QString>> shown;  // guarded by mutex
    std::optional<Platform> platform;
    platform::Subscription followed;
    std::atomic<bool> stopSending{false};
    std::atomic<std::uint64_t> blocksSent{0};
};

}  // namespace

TEST_F(PlayerAudioTest, AStreamArrivesBitByBit) {
    startWithRecorder();
    const Samples samples = noise(2 * 50'001);
    playStream();
    Stream stream(2);
    stream.sendAll(samples);
    stream.sender().shutdownSender();
    stop();
    EXPECT_EQ(recorded(), samples);
}

TEST_F(PlayerAudioTest, StatesFollowTheStream) {
    startWithRecorder();
    playStream();
    EXPECT_EQ(state(), VeskPlayLogicState::Transitioning);
    {
        Stream stream(2);
        EXPECT_EQ(state(), VeskPlayLogicState::Transitioning);
        stream.sendAll(noise(2000));
        stream.sender().shutdownSender();
        EXPECT_EQ(state(), VeskPlayLogicState::Playing);
    }
    EXPECT_TRUE(awaitState(VeskPlayLogicState::Stopped)) << "the sender is gone";
    const std::lock_guard lock(mutex);
    EXPECT_THAT(shown, ElementsAre(std::pair(1, VeskService_Dirac_Id()),
                                   std::pair(2, VeskService_Dirac_Id()), std::pair(0, QString())));
}

TEST_F(PlayerAudioTest, RolesAreThereWhenPlayReturnsAndGoneWhenStopReturns) {
    startWithRecorder();
    playStream();
    EXPECT_EQ(player()->data().mediaRoles(), streamRoles());
    stop();
    EXPECT_TRUE(player()->data().mediaRoles().isEmpty());
    EXPECT_THAT(shownStates(), ElementsAre(1, 0));
}

TEST_F(PlayerAudioTest, AttenuationScalesTheSamples) {
    startWithRecorder();
    setAttenuation(-6.02);
    const Samples samples = noise(20'000);
    playStream();
    Stream stream(2);
    stream.sendAll(samples);
    stream.sender().shutdownSender();
    stop();
    Samples expected;
    for (const std::int32_t sample : samples)
        expected.push_back(platform::saturated(sample * std::pow(10.0, -6.02 / 20)));
    EXPECT_EQ(recorded(), expected);
}

TEST_F(PlayerAudioTest, AnAttenuationThatIsNoNumberIsLeftOut) {
    startWithRecorder();
    setAttenuation(std::numeric_limits<double>::quiet_NaN());
    const Samples samples = noise(2000);
    playStream();
    Stream stream(1);
    stream.send(samples);
    stream.sender().shutdownSender();
    stop();
    EXPECT_EQ(recorded(), samples);
}

TEST_F(PlayerAudioTest, AChangeOfTheAttenuationDoesNotClick) {
    startWithRecorder();
    playStream();
    Stream stream(1);
    stream.send(Samples(4800, 1'000'000));
    EXPECT_TRUE(awaitState(VeskPlayLogicState::Playing));
    setAttenuation(-20);
    stream.send(Samples(4800, 1'000'000));
    stream.sender().shutdownSender();
    stop();
    const Samples played = recorded();
    ASSERT_EQ(played.size(), 9600U);
    EXPECT_EQ(played.back(), 100'000);
    for (std::size_t i = 1; i < played.size(); ++i)
        ASSERT_LE(std::abs(played[i] - played[i - 1]), 1876);
}

TEST_F(PlayerAudioTest, TheRoomHearsAStreamAtTheExactFrame) {
    enterRoom(2);
    startPlatform("room");
    const AlsaPcm microphone(SND_PCM_STREAM_CAPTURE, {.channels = 1, .buffer = 65'536});
    microphone.start();
    const Signal signal = randomSignal(30'000, 1);
    Samples frames;
    for (const float sample : signal) {
        frames.push_back(0);
        frames.push_back(static_cast<std::int32_t>(std::llround(sample * 2147483648.0)));
    }
    auto hearing = std::async(std::launch::async, [&] {
        Signal heard;
        while (std::ranges::count_if(heard, [](float x) { return x != 0.0F; }) < 29'000) {
            const Signal piece = microphone.read(512);
            if (!heard.empty() || std::ranges::any_of(piece, [](float x) { return x != 0.0F; }))
                heard.insert(heard.end(), piece.begin(), piece.end());
        }
        const Signal rest = microphone.read(2048);
        heard.insert(heard.end(), rest.begin(), rest.end());
        heard.erase(heard.begin(), std::ranges::find_if(heard, [](float x) { return x != 0.0F; }));
        return heard;
    });
    playStream();
    Stream stream(2);
    stream.sendAll(frames);
    stream.sender().shutdownSender();
    Signal heard = hearing.get();
    heard.resize(signal.size());
    EXPECT_LT(worstErrorDb(heard, signal), -120.0);
    EXPECT_EQ(statistics().underruns(), 0);
}

TEST_F(PlayerAudioTest, AtMostFourTenthsOfASecondAreOnTheWay) {
    enterRoom(1);
    startPlatform("room");
    const AlsaPcm microphone(SND_PCM_STREAM_CAPTURE, {.channels = 1, .period = 128, .buffer = 256});
    microphone.start();
    playStream();
    Stream stream(1);
    auto sending = sendEndlessly(stream);
    EXPECT_TRUE(eventually([&] { return blocksSent >= 18; }));
    EXPECT_EQ(sending.wait_for(100ms), std::future_status::timeout);
    EXPECT_LE(blocksSent * 960, 19'200U + 256U);
    stopSending = true;
    stop();
    EXPECT_LT(timeOf(sending), 500ms);
}

TEST_F(PlayerAudioTest, AStopInTheMiddleFreesTheSender) {
    enterRoom(1);
    startPlatform("room");
    const AlsaPcm microphone(SND_PCM_STREAM_CAPTURE, {.channels = 1, .period = 128, .buffer = 256});
    microphone.start();
    playStream();
    Stream stream(1);
    auto sending = sendEndlessly(stream);
    EXPECT_TRUE(eventually([&] { return blocksSent >= 18; }));
    const auto begin = Clock::now();
    stop();
    EXPECT_LT(Clock::now() - begin, 200ms);
    EXPECT_EQ(state(), VeskPlayLogicState::Stopped);
    EXPECT_TRUE(sendsOn()) << "data are dropped";
    stopSending = true;
    sending.get();
    stream.sender().shutdownSender();
    EXPECT_TRUE(eventually([] { return openResult(SND_PCM_STREAM_PLAYBACK) == 0; }));
}

TEST_F(PlayerAudioTest, TheEndOfThePlatformFreesTheSender) {
    startPlatform("");
    playStream();
    Stream stream(1);
    auto sending = sendEndlessly(stream);
    EXPECT_TRUE(eventually([&] { return blocksSent >= 5; }));
    followed.reset();
    platform.reset();
    stopSending = true;
    EXPECT_LT(timeOf(sending), 500ms);
}

TEST_F(PlayerAudioTest, AMissingDeviceStopsThePlayerAndFreesTheSender) {
    recorder.emplace();
    startPlatform("nowhere");
    playStreamThatTheDeviceRefuses();
    EXPECT_TRUE(log.contains("ERROR Cannot play smt://play?socketAddress=PlayerAudioTest"));
    EXPECT_TRUE(log.contains("\"nowhere\": cannot be opened for playback: No such file"));
    EXPECT_THAT(shownStates(), ElementsAre(1, 0));
}

TEST_F(PlayerAudioTest, ABusyDeviceStopsThePlayerAndFreesTheSender) {
    enterRoom(1);
    const AlsaPcm other(SND_PCM_STREAM_PLAYBACK, {1});
    startPlatform("room");
    playStreamThatTheDeviceRefuses();
    EXPECT_TRUE(log.contains("\"room\": cannot be opened for playback: Device or resource busy"));
}

TEST_F(PlayerAudioTest, TooManyChannelsForTheDeviceStopThePlayerAndFreeTheSender) {
    enterRoom(2);
    startPlatform("room");
    playStreamThatTheDeviceRefuses();
    EXPECT_TRUE(log.contains("\"room\": cannot do 1 channels; it can do 2"));
}

TEST_F(PlayerAudioTest, ASecondPlayTakesThePlaceOfTheFirst) {
    startPlatform("");
    const Samples samples = noise(4000);
    const QString file = soundFile("second.wav", samples, 2);
    playStream();
    Stream stream(1);
    auto sending = sendEndlessly(stream);
    EXPECT_TRUE(awaitState(VeskPlayLogicState::Playing));
    player()->play(platform::fileRoles(file), false);
    EXPECT_TRUE(sendsOn()) << "the first one is freed";
    stopSending = true;
    sending.get();
    EXPECT_TRUE(awaitState(VeskPlayLogicState::Stopped));
    EXPECT_THAT(shownStates(), ElementsAre(1, 2, 1, 2, 0));
}

TEST_F(PlayerAudioTest, TheSameStreamCanBePlayedAgainAndAgain) {
    startWithRecorder();
    const Samples samples = noise(3000);
    for (int i = 0; i < 20; ++i) {
        playStream();
        Stream stream(2);
        ASSERT_TRUE(stream.isOpen());
        stream.sendAll(samples);
        stream.sender().shutdownSender();
        ASSERT_EQ(state(), VeskPlayLogicState::Playing);
        stop();
    }
    EXPECT_EQ(recorded(), samples);
}

TEST_F(PlayerAudioTest, EnqueuedSourcesPlayOneAfterTheOther) {
    startPlatform("");
    player()->play(platform::fileRoles(soundFile("1.wav", noise(500), 1)), false);
    player()->play(platform::fileRoles(soundFile("2.wav", noise(600), 1)), true);
    player()->play(platform::fileRoles(soundFile("3.wav", noise(700), 1)), true);
    EXPECT_TRUE(awaitState(VeskPlayLogicState::Stopped));
    EXPECT_THAT(shownStates(), ElementsAre(1, 2, 1, 2, 1, 2, 0));
    EXPECT_EQ(statistics().frames(), 1800);
}

TEST_F(PlayerAudioTest, AFileArrivesBitByBit) {
    startWithRecorder();
    const Samples samples = noise(3 * 33'333);
    player()->play(platform::fileRoles(soundFile("noise.wav", samples, 3)), false);
    EXPECT_TRUE(awaitState(VeskPlayLogicState::Stopped));
    EXPECT_EQ(recorded(), samples);
}

TEST_F(PlayerAudioTest, AnEmptyFileIsPlayedAtOnce) {
    startWithRecorder();
    player()->play(platform::fileRoles(soundFile("empty.wav", {}, 1)), false);
    EXPECT_TRUE(awaitState(VeskPlayLogicState::Stopped));
    EXPECT_EQ(statistics().frames(), 0);
}

TEST_F(PlayerAudioTest, WhatIsNoSourceIsLogged) {
    startWithRecorder();
    for (const char* uri : {"", "http://radio", "smt://play", "file:///no/such/file", "%%%"}) {
        player()->play(rolesOf(QString::fromLatin1(uri)), false);
        EXPECT_TRUE(awaitState(VeskPlayLogicState::Stopped)) << uri;
    }
    player()->play(
        rolesOf(QStringLiteral("smt://play?socketAddress=") + QString(500, QLatin1Char('x'))),
        false);
    EXPECT_TRUE(awaitState(VeskPlayLogicState::Stopped)) << "a name that is too long";
    player()->play(VeskRoles(), false);
    EXPECT_TRUE(awaitState(VeskPlayLogicState::Stopped));
    EXPECT_TRUE(log.contains("ERROR Cannot play http://radio: it is neither a file nor a media"));
    EXPECT_TRUE(log.contains("ERROR Cannot play file:///no/such/file: /no/such/file: "));
}

TEST_F(PlayerAudioTest, WithoutADeviceAudioTakesItsTime) {
    startPlatform("");
    const auto begin = Clock::now();
    player()->play(platform::fileRoles(soundFile("long.wav", Samples(24'000), 1)), false);
    EXPECT_TRUE(awaitState(VeskPlayLogicState::Stopped));
    EXPECT_GE(Clock::now() - begin, 499ms);
    EXPECT_TRUE(log.contains("WARN There is no playback device: nobody hears what is played"));
}

TEST_F(PlayerAudioTest, AStreamMayChangeItsFormat) {
    startPlatform("");
    playStream();
    Stream stream(1);
    stream.send(Samples(1000));
    stream.payloader().setNewFormat(44100, 2, audioUtils::PcmFormat::S32);
    stream.sender().startNewSequence();
    stream.send(Samples(1000));
    stream.sender().shutdownSender();
    EXPECT_EQ(state(), VeskPlayLogicState::Playing);
    stop();
    EXPECT_TRUE(eventually([] { return statistics().frames() == 1500; }));
}

TEST_F(PlayerAudioTest, ASourceThatIsLateIsAnUnderrunAndOneThatHasEndedIsNot) {
    startPlatform("");
    playStream();
    Stream stream(1);
    stream.send(Samples(960));
    std::this_thread::sleep_for(300ms);  // far longer than what was sent
    stream.send(Samples(960));
    stream.sender().shutdownSender();
    std::this_thread::sleep_for(300ms);
    stop();
    EXPECT_TRUE(eventually([] { return statistics().frames() == 1920; }));
    EXPECT_EQ(statistics().underruns(), 1);
}

TEST_F(PlayerAudioTest, UnderrunsOfTheDeviceAreCountedAndLogged) {
    recorder.emplace(faultyDevices());
    startPlatform("xrunning");
    player()->play(platform::fileRoles(soundFile("sound.wav", noise(2 * 50'000), 2)), false);
    EXPECT_TRUE(awaitState(VeskPlayLogicState::Stopped));
    EXPECT_EQ(statistics().frames(), 50'000);
    EXPECT_GE(statistics().underruns(), 8);
    EXPECT_TRUE(log.contains("WARN Playback: underrun number "));
}

TEST_F(PlayerAudioTest, ADeviceThatIsUnpluggedStopsThePlayer) {
    recorder.emplace(faultyDevices());
    startPlatform("erring");
    player()->play(platform::fileRoles(soundFile("sound.wav", noise(2 * 50'000), 2)), false);
    EXPECT_TRUE(awaitState(VeskPlayLogicState::Stopped));
    EXPECT_TRUE(log.contains("\"erring\": cannot play: No such device"));
}

TEST_F(PlayerAudioTest, AnyThreadMayPlayAndStop) {
    startPlatform("");
    const QString file = soundFile("short.wav", noise(100), 1);
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([&file, i] {
                for (int k = 0; k < 50; ++k) {
                    player()->play(platform::fileRoles(file), i == 1);
                    (void)player()->data();
                    if (i == 2)
                        stop();
                }
            });
    }
    stop();
    EXPECT_EQ(state(), VeskPlayLogicState::Stopped);
}
