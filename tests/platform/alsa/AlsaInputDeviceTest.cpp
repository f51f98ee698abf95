#include "platform/alsa/AlsaConfiguration.h"
#include "platform/alsa/FaultyDevices.h"
#include "roomsim/AlsaPcm.h"
#include "sdk/alsa/AlsaInputDevice.h"
#include "support/Eventually.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <ctime>
#include <future>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kBlock = 128;  // frames

class AlsaInputDeviceTest : public testing::Test {
protected:
    void enterRoom(const nlohmann::json& description, const Signal& response = {1.0F}) {
        files = std::make_unique<RoomFiles>(description);
        files->addWav("responses.wav", 48000, {response});
        alsa = std::make_unique<AlsaRoom>(*files);
    }

    static std::unique_ptr<AlsaInputDevice> microphone(const char* name = "room", int rate = 48000,
                                                       unsigned channels = 1) {
        return std::make_unique<AlsaInputDevice>(QString::fromLatin1(name), rate, channels,
                                                 SND_PCM_FORMAT_S32_LE, 10, 100);
    }

    static std::vector<std::int32_t> samplesOf(const QByteArray& data) {
        std::vector<std::int32_t> samples(static_cast<std::size_t>(data.size()) / 4);
        std::memcpy(samples.data(), data.data(), samples.size() * 4);
        return samples;
    }

    /// Blocks until one is not silent, and the next ones.
    static Signal soundIn(AlsaInputDevice& device, std::size_t length) {
        Signal sound;
        QByteArray block;
        while (sound.size() < length && device.read(block, kBlock))
            for (const std::int32_t sample : samplesOf(block))
                if (sample != 0 || !sound.empty())
                    sound.push_back(static_cast<float>(sample / 2147483648.0));
        sound.resize(length);
        return sound;
    }

    /// Blocks that are read until a read fails, which it must do soon. A read that never ends would
    /// end with the test program.
    static int blocksUntilFailure(const std::shared_ptr<AlsaInputDevice>& device,
                                  std::chrono::seconds soon) {
        std::promise<int> promise;
        auto result = promise.get_future();
        std::thread([device, promise = std::move(promise)]() mutable {
            QByteArray data;
            int blocks = 0;
            while (device->read(data, kBlock))
                ++blocks;
            promise.set_value(blocks);
        }).detach();
        if (result.wait_for(soon) == std::future_status::ready)
            return result.get();
        ADD_FAILURE() << "The read does not end";
        return -1;
    }

    /// What the process has computed so far.
    static double processorSeconds() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

    const LogCapture log{"Platform"};
    std::unique_ptr<RoomFiles> files;
    std::unique_ptr<AlsaRoom> alsa;
};

}  // namespace

TEST_F(AlsaInputDeviceTest, TellsTheSizesOfItsFrames) {
    EXPECT_EQ(microphone()->bytesPerSample(), 4);
    EXPECT_EQ(microphone()->channels(), 1);
    EXPECT_EQ(AlsaInputDevice(QStringLiteral("x"), 48000, 2, SND_PCM_FORMAT_S16_LE, 10, 100)
                  .bytesPerSample(),
              2);
}

TEST_F(AlsaInputDeviceTest, ReadsBlocksOfTheWantedLength) {
    enterRoom(measuredRoom(1));
    const auto device = microphone();
    ASSERT_TRUE(device->open());
    QByteArray data;
    for (const int frames : {128, 1, 500, 20'000, 128}) {
        ASSERT_TRUE(device->read(data, frames));
        EXPECT_EQ(data.size(), frames * 4);
    }
    EXPECT_FALSE(log.contains("overrun"));
}

TEST_F(AlsaInputDeviceTest, HearsWhatIsPlayed) {
    const Signal response = randomResponse(1000, 1);
    enterRoom(measuredRoom(1), response);
    const auto device = microphone();
    ASSERT_TRUE(device->open());
    const AlsaPcm loudspeaker(SND_PCM_STREAM_PLAYBACK, {1});
    loudspeaker.write({impulse(2000, 0, 1.0F)});
    QByteArray first;
    ASSERT_TRUE(device->read(first, kBlock));  // starts it
    loudspeaker.start();
    EXPECT_LT(worstErrorDb(soundIn(*device, 1500), delayed(response, 0, 1500)), -120.0);
}

TEST_F(AlsaInputDeviceTest, SmallBlocksComeOneByOne) {
    nlohmann::json room = measuredRoom(1);
    room["pace"] = "realtime";
    enterRoom(room);
    const auto device = microphone();
    ASSERT_TRUE(device->open());
    QByteArray data;
    std::vector<double> milliseconds;
    for (auto last = Clock::now(); milliseconds.size() < 200;) {
        ASSERT_TRUE(device->read(data, kBlock));
        const auto now = Clock::now();
        milliseconds.push_back(std::chrono::duration<double, std::milli>(now - last).count());
        last = now;
    }
    std::ranges::sort(milliseconds);
    EXPECT_GT(milliseconds[100], 1.5);  // 2.7 ms apart; in periods of 10 ms most were 0
}

TEST_F(AlsaInputDeviceTest, AMissingDeviceIsLoggedWithTheReason) {
    const AlsaConfiguration none;
    const auto device = microphone("nowhere");
    EXPECT_FALSE(device->open());
    EXPECT_THAT(log.lines(),
                testing::ElementsAre("ERROR Input device \"nowhere\": cannot be opened for "
                                     "capture: No such file or directory (Unknown PCM nowhere)"));
}

TEST_F(AlsaInputDeviceTest, ABusyDeviceIsLogged) {
    enterRoom(measuredRoom(1));
    const AlsaPcm other(SND_PCM_STREAM_CAPTURE, {1});
    EXPECT_FALSE(microphone()->open());
    EXPECT_TRUE(log.contains("\"room\": cannot be opened for capture: Device or resource busy"));
}

TEST_F(AlsaInputDeviceTest, WhatTheDeviceCannotDoIsLogged) {
    enterRoom(measuredRoom(1));
    EXPECT_FALSE(microphone("room", 48000, 2)->open());
    EXPECT_TRUE(log.contains("\"room\": cannot do 2 channels; it can do 1"));
    EXPECT_FALSE(microphone("room", 11025)->open());
    EXPECT_TRUE(log.contains("\"room\": cannot do 11025 Hz; it can do 44100 to 192000 Hz"));
    AlsaInputDevice odd(QStringLiteral("room"), 48000, 1, SND_PCM_FORMAT_U8, 10, 100);
    EXPECT_FALSE(odd.open());
    EXPECT_TRUE(log.contains("\"room\": cannot do U8; it can do S16_LE, S32_LE, FLOAT_LE"));
}

TEST_F(AlsaInputDeviceTest, AReadWithoutAnOpenDeviceFails) {
    QByteArray data;
    EXPECT_FALSE(microphone()->read(data, kBlock));
}

TEST_F(AlsaInputDeviceTest, ADeviceThatIsUnpluggedEndsTheReads) {
    nlohmann::json room = measuredRoom(1);
    room["microphones"][0]["unpluggedAfterMs"] = 20;
    enterRoom(room);
    const auto device = microphone();
    ASSERT_TRUE(device->open());
    QByteArray data;
    int blocks = 0;
    while (blocks < 1000 && device->read(data, kBlock))
        ++blocks;
    EXPECT_LT(blocks, 1000);
    EXPECT_TRUE(data.isEmpty());
    EXPECT_TRUE(log.contains("No such device"));
    EXPECT_FALSE(device->read(data, kBlock));
}

TEST_F(AlsaInputDeviceTest, ADeviceThatIsGoneEndsAReadThatWaitsForIt) {
    const AlsaConfiguration faulty(faultyDevices());
    for (const char* name : {"unplugged", "erring"}) {
        const std::shared_ptr device = microphone(name);
        ASSERT_TRUE(device->open());
        EXPECT_GT(blocksUntilFailure(device, std::chrono::seconds(3)), 20) << name;
        EXPECT_TRUE(log.contains('"' + std::string(name) + "\": cannot record: No such device"));
    }
}

TEST_F(AlsaInputDeviceTest, ADeviceThatWakesItsReaderForNothingIsGivenUp) {
    const AlsaConfiguration faulty(faultyDevices());
    const std::shared_ptr device = microphone("waking");
    ASSERT_TRUE(device->open());
    const auto begin = Clock::now();
    EXPECT_EQ(blocksUntilFailure(device, std::chrono::seconds(10)), 32);
    EXPECT_GE(Clock::now() - begin, std::chrono::seconds(5));
    EXPECT_TRUE(log.contains("\"waking\": has delivered nothing for 5 s"));
}

TEST_F(AlsaInputDeviceTest, ADeviceThatMovesNothingTakesLittleOfACore) {
    const AlsaConfiguration faulty(faultyDevices());
    for (const char* name : {"waking", "lame"}) {
        const std::shared_ptr device = microphone(name);
        ASSERT_TRUE(device->open());
        const double before = processorSeconds();
        EXPECT_GT(blocksUntilFailure(device, std::chrono::seconds(10)), 20) << name;
        EXPECT_LT(processorSeconds() - before, 1) << name << ", in 5 s";
        EXPECT_TRUE(log.contains('"' + std::string(name) + "\": has delivered nothing for 5 s"));
    }
}

TEST_F(AlsaInputDeviceTest, ABlockOfManyPeriodsIsNotLate) {
    nlohmann::json room = measuredRoom(1);
    room["pace"] = "realtime";
    enterRoom(room);
    const auto device = microphone();
    ASSERT_TRUE(device->open());
    QByteArray data;
    ASSERT_TRUE(device->read(data, 1000));  // starts it
    const auto begin = Clock::now();
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(device->read(data, 1000));
    EXPECT_LT(Clock::now() - begin, std::chrono::milliseconds(500));  // they last 417 ms
    EXPECT_FALSE(log.contains("overrun"));
}

TEST_F(AlsaInputDeviceTest, ASuspendedDeviceGoesOn) {
    const AlsaConfiguration faulty(faultyDevices());
    const auto device = microphone("suspended");
    ASSERT_TRUE(device->open());
    QByteArray data;
    for (int i = 0; i < 100; ++i)
        ASSERT_TRUE(device->read(data, kBlock));
    EXPECT_FALSE(log.contains("overrun"));
}

TEST_F(AlsaInputDeviceTest, OverrunsAreCountedAndRecovered) {
    nlohmann::json room = measuredRoom(1);
    room["pace"] = 1000;
    enterRoom(room);
    const auto device = microphone();
    ASSERT_TRUE(device->open());
    QByteArray data;
    EXPECT_TRUE(eventually([&] {
        return device->read(data, kBlock) && log.contains("WARN \"room\": overrun number 2");
    }));
    EXPECT_EQ(data.size(), kBlock * 4);
    EXPECT_TRUE(log.contains("WARN \"room\": overrun number 1"));
}

TEST_F(AlsaInputDeviceTest, MayBeOpenedAgain) {
    enterRoom(measuredRoom(1));
    const auto device = microphone();
    QByteArray data;
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(device->open());
        ASSERT_TRUE(device->read(data, kBlock));
    }
}

TEST_F(AlsaInputDeviceTest, TheEndGivesTheDeviceBack) {
    enterRoom(measuredRoom(1));
    auto device = microphone();
    ASSERT_TRUE(device->open());
    device.reset();
    EXPECT_EQ(openResult(SND_PCM_STREAM_CAPTURE), 0);
}
