#include "platform/alsa/AlsaConfiguration.h"
#include "platform/alsa/AlsaOutputDevice.h"
#include "platform/alsa/FaultyDevices.h"
#include "roomsim/AlsaPcm.h"
#include "support/Eventually.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <future>
#include <random>

using namespace std::chrono_literals;
using platform::AlsaError;
using platform::AlsaOutputDevice;
using platform::AudioFormat;
using testing::HasSubstr;

namespace {

std::vector<std::int32_t> noise(std::size_t samples) {
    std::mt19937 random(1);
    std::uniform_int_distribution<std::int32_t> any(std::numeric_limits<std::int32_t>::min());
    std::vector<std::int32_t> result(samples);
    std::generate(result.begin(), result.end(), [&] { return any(random); });
    return result;
}

class AlsaOutputDeviceTest : public testing::Test {
protected:
    std::string failureOf(const std::string& name, const AudioFormat& format) const {
        try {
            const AlsaOutputDevice device(name, format, interrupt);
            return "none";
        } catch (const AlsaError& error) {
            return error.what();
        }
    }

    /// A room in which time stands still, because nobody reads the microphone.
    static nlohmann::json room(std::size_t speakers) {
        nlohmann::json json = measuredRoom(speakers);
        return json;
    }

    static void addIdentity(const RoomFiles& files, std::size_t speakers) {
        files.addWav("responses.wav", 48000, Signals(speakers, Signal{1.0F}));
    }

    /// Writes until it fails, which it must do soon, and tells how. "interrupted": it had to be.
    std::string failureOfWrites(const std::string& name, std::chrono::seconds soon) {
        AlsaOutputDevice device(name, {48000, 2}, interrupt);
        auto writing = std::async(std::launch::async, [&]() -> std::string {
            try {
                while (device.write(noise(512))) {
                }
                return "interrupted";
            } catch (const AlsaError& error) {
                return error.what();
            }
        });
        writing.wait_for(soon);
        interrupt.signal();
        std::string failure = writing.get();
        interrupt.clear();
        return failure;
    }

    const LogCapture log{"Platform"};
    platform::WakeEvent interrupt;
};

}  // namespace

TEST_F(AlsaOutputDeviceTest, TheNullDeviceTakesEverythingAtOnce) {
    const AlsaConfiguration alsa;
    AlsaOutputDevice device("null", {48000, 2}, interrupt);
    EXPECT_TRUE(device.write(noise(20'000)));
    EXPECT_TRUE(device.drain());
    EXPECT_TRUE(device.write(noise(20)));
    EXPECT_EQ(device.underruns(), 0U);
}

TEST_F(AlsaOutputDeviceTest, SamplesArriveBitByBit) {
    const AlsaConfiguration alsa;
    const auto samples = noise(30'000);
    {
        AlsaOutputDevice device("recorder", {48000, 3}, interrupt);
        EXPECT_TRUE(device.write(std::span(samples).first(300)));
        EXPECT_TRUE(device.write(std::span(samples).subspan(300)));
        EXPECT_TRUE(device.drain());
    }
    EXPECT_EQ(alsa.recorded(), samples);
}

TEST_F(AlsaOutputDeviceTest, WhatIsWrittenAfterADrainFollows) {
    const AlsaConfiguration alsa;
    const auto samples = noise(2000);
    {
        AlsaOutputDevice device("recorder", {48000, 2}, interrupt);
        EXPECT_TRUE(device.write(std::span(samples).first(1000)));
        EXPECT_TRUE(device.drain());
        EXPECT_TRUE(device.write(std::span(samples).subspan(1000)));
        EXPECT_TRUE(device.drain());
    }
    EXPECT_EQ(alsa.recorded(), samples);
}

TEST_F(AlsaOutputDeviceTest, AMissingDeviceIsNamedWithTheReason) {
    const AlsaConfiguration alsa;
    EXPECT_EQ(failureOf("nowhere", {48000, 2}),
              "\"nowhere\": cannot be opened for playback: No such file or directory (Unknown PCM "
              "nowhere)");
}

TEST_F(AlsaOutputDeviceTest, ABusyDeviceIsNamed) {
    const RoomFiles files(room(2));
    addIdentity(files, 2);
    const AlsaRoom alsa(files);
    const AlsaPcm other(SND_PCM_STREAM_PLAYBACK, {2});
    EXPECT_THAT(failureOf("room", {48000, 2}),
                HasSubstr("\"room\": cannot be opened for playback: Device or resource busy"));
}

TEST_F(AlsaOutputDeviceTest, AnImpossibleNumberOfChannelsIsNamedWithWhatIsPossible) {
    const RoomFiles files(room(2));
    addIdentity(files, 2);
    const AlsaRoom alsa(files);
    EXPECT_EQ(failureOf("room", {48000, 3}), "\"room\": cannot do 3 channels; it can do 2");
}

TEST_F(AlsaOutputDeviceTest, AnImpossibleRateIsNamedWithWhatIsPossible) {
    const RoomFiles files(room(2));
    addIdentity(files, 2);
    const AlsaRoom alsa(files);
    EXPECT_EQ(failureOf("room", {8000, 2}),
              "\"room\": cannot do 8000 Hz; it can do 44100 to 192000 Hz");
}

TEST_F(AlsaOutputDeviceTest, AWriteToAStandingDeviceIsInterruptedAtOnce) {
    const RoomFiles files(room(1));
    addIdentity(files, 1);
    const AlsaRoom alsa(files);
    const AlsaPcm microphone(SND_PCM_STREAM_CAPTURE, {1});
    microphone.start();
    AlsaOutputDevice device("room", {48000, 1}, interrupt);
    std::atomic<std::size_t> blocks{0};
    auto writing = std::async(std::launch::async, [&] {
        while (device.write(noise(256)))
            ++blocks;
    });
    EXPECT_TRUE(eventually([&] { return blocks >= 16; }));
    EXPECT_EQ(writing.wait_for(50ms), std::future_status::timeout);
    const auto begin = std::chrono::steady_clock::now();
    interrupt.signal();
    writing.get();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 200ms);
    // What the microphone's buffer could hold has been played, and 0.1 s lie in the device.
    EXPECT_LE(blocks * 256, 4096U + 4800U);
}

TEST_F(AlsaOutputDeviceTest, ADrainIsInterruptedAtOnce) {
    const RoomFiles files(room(1));
    addIdentity(files, 1);
    const AlsaRoom alsa(files);
    const AlsaPcm microphone(SND_PCM_STREAM_CAPTURE, {.channels = 1, .period = 128, .buffer = 256});
    microphone.start();
    AlsaOutputDevice device("room", {48000, 1}, interrupt);
    EXPECT_TRUE(device.write(noise(2000)));
    auto draining = std::async(std::launch::async, [&] { return device.drain(); });
    EXPECT_EQ(draining.wait_for(50ms), std::future_status::timeout);
    interrupt.signal();
    EXPECT_FALSE(draining.get());
}

TEST_F(AlsaOutputDeviceTest, ADrainReturnsWhenEverythingHasBeenHeard) {
    const RoomFiles files(room(1));
    addIdentity(files, 1);
    const AlsaRoom alsa(files);
    AlsaOutputDevice device("room", {48000, 1}, interrupt);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(device.write(noise(700)));
        EXPECT_TRUE(device.drain());
    }
    EXPECT_EQ(device.underruns(), 0U);
}

TEST_F(AlsaOutputDeviceTest, ADeviceThatIsGoneEndsAWriteThatWaitsForIt) {
    const AlsaConfiguration faulty(faultyDevices());
    for (const std::string name : {"unplugged", "erring"})
        EXPECT_EQ(failureOfWrites(name, 3s), '"' + name + "\": cannot play: No such device");
}

TEST_F(AlsaOutputDeviceTest, ADeviceThatWakesItsWriterForNothingIsGivenUp) {
    const AlsaConfiguration faulty(faultyDevices());
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(failureOfWrites("waking", 10s), "\"waking\": has taken no audio for 5 s");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 5s);
}

TEST_F(AlsaOutputDeviceTest, ADeviceThatTakesNothingTakesLittleOfACore) {
    const AlsaConfiguration faulty(faultyDevices());
    const std::clock_t before = std::clock();
    EXPECT_EQ(failureOfWrites("waking", 10s), "\"waking\": has taken no audio for 5 s");
    EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC) << "in 5 s";
}

TEST_F(AlsaOutputDeviceTest, ASuspendedDeviceGoesOn) {
    const AlsaConfiguration faulty(faultyDevices());
    AlsaOutputDevice device("suspended", {48000, 2}, interrupt);
    EXPECT_TRUE(device.write(noise(40'000)));
    EXPECT_EQ(device.underruns(), 0U);
}

TEST_F(AlsaOutputDeviceTest, LongPeriodsAreUsedWithAWarning) {
    const AlsaConfiguration faulty(faultyDevices());
    AlsaOutputDevice device("coarse", {48000, 2}, interrupt);
    EXPECT_THAT(log.lines(), testing::ElementsAre("WARN \"coarse\": holds 170 ms of audio, more "
                                                  "than 100 ms, because its periods have 4096 "
                                                  "frames"));
    EXPECT_TRUE(device.write(noise(100'000)));
}

TEST_F(AlsaOutputDeviceTest, PeriodsThatFitAreUsedWithoutAWarning) {
    const AlsaConfiguration faulty(faultyDevices());
    const AlsaOutputDevice device("coarse", {96000, 2}, interrupt);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(AlsaOutputDeviceTest, UnderrunsAreCountedAndRecovered) {
    nlohmann::json fast = room(1);
    fast["pace"] = 1000;
    const RoomFiles files(fast);
    addIdentity(files, 1);
    const AlsaRoom alsa(files);
    AlsaOutputDevice device("room", {48000, 1}, interrupt);
    EXPECT_TRUE(eventually([&] { return device.write(noise(256)) && device.underruns() >= 3; }));
    EXPECT_TRUE(log.lines().empty()) << "the audio thread must not wait for a log";
}
