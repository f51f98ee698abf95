// A room whose streams are in two processes, and what becomes of it when one is killed.

#include "roomsim/AlsaPcm.h"
#include "roomsim/ImpulseResponses.h"
#include "roomsim/SharedRoom.h"
#include "roomsim/WavFile.h"
#include "support/Eventually.h"
#include "support/Subprocess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>

#include <cmath>
#include <cstdlib>
#include <fstream>

namespace {

using nlohmann::json;
using roomsim::Role;
using testing::HasSubstr;

constexpr auto kPlayback = SND_PCM_STREAM_PLAYBACK;
constexpr auto kCapture = SND_PCM_STREAM_CAPTURE;

class AlsaProcessesTest : public testing::Test {
protected:
    explicit AlsaProcessesTest(const json& room = measuredRoom(2)) : files(room), alsa(files) {
        files.addWav("responses.wav", 48000, responses);
    }

    std::vector<std::string> peer(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), VESK_ROOM_PEER);
        return arguments;
    }

    /// Frames from the start of the recording to the start of the playback.
    std::int64_t playbackOffset() const {
        const auto room = roomsim::SharedRoom::inspect(files.room()).value();
        return (room.of(Role::kPlayback).start - room.of(Role::kCapture).start) /
               roomsim::flicksPerFrame(48000);
    }

    Signal readFloats(const std::string& name, std::size_t count) const {
        Signal signal(count);
        std::ifstream(files.path(name), std::ios::binary)
            .read(reinterpret_cast<char*>(signal.data()),
                  static_cast<std::streamsize>(count * sizeof(float)));
        return signal;
    }

    const Signals responses{randomResponse(5000, 1), randomResponse(5000, 2)};
    RoomFiles files;
    AlsaRoom alsa;
};

/// Runs at twice the speed of the machine's clock.
class PacedAlsaProcessesTest : public AlsaProcessesTest {
protected:
    PacedAlsaProcessesTest() : AlsaProcessesTest(pacedRoom()) {}

    /// For programs that are not ours: they load the plug-in with its sanitizer, if it has one, and
    /// are not to blame for what they leave allocated.
    static std::vector<std::string> foreignEnvironment() {
        const std::string runtime = VESK_SANITIZER_RUNTIME;
        if (runtime.empty())
            return {};
        return {"LD_PRELOAD=" + runtime, "ASAN_OPTIONS=detect_leaks=0"};
    }

    static json pacedRoom() {
        json room = measuredRoom(2);
        room["pace"] = 2;
        return room;
    }
};

TEST_F(AlsaProcessesTest, WhatOneProcessPlaysTheOtherRecordsAtTheExactFrame) {
    const AlsaPcm capture(kCapture, {.channels = 1, .buffer = 4096});
    capture.start();
    Subprocess player(peer({"play", "2", "777", "6000"}));
    ASSERT_EQ(player.readLine(), "started");
    (void)capture.read(static_cast<std::size_t>(playbackOffset()));
    EXPECT_LT(worstErrorDb(capture.read(10'000), delayed(responses[1], 777, 10'000)), -120.0);
    EXPECT_EQ(player.readLine(), "drained");
    EXPECT_EQ(player.wait().exitCode, 0);
}

TEST_F(AlsaProcessesTest, TheOtherProcessRecordsWhatThisOnePlays) {
    const AlsaPcm playback(kPlayback, {2});
    playback.write({Signal(512), Signal(512)});
    playback.start();  // it runs dry at once, and holds the room's time until there is more
    Subprocess recorder(peer({"record", "20000", files.path("recording").string()}));
    ASSERT_EQ(recorder.readLine(), "started");
    const std::int64_t late = -playbackOffset();
    playback.write({impulse(10'000, 1000, 1.0F), Signal(10'000)});
    playback.drain();
    ASSERT_EQ(recorder.readLine(), "recorded");
    const auto place = static_cast<std::size_t>(512 + 1000 - late);
    EXPECT_LT(worstErrorDb(readFloats("recording", 20'000), delayed(responses[0], place, 20'000)),
              -120.0);
}

TEST_F(AlsaProcessesTest, ARecordingGoesOnWhenThePlayersProcessIsKilled) {
    const AlsaPcm capture(kCapture, {1});
    capture.start();
    Subprocess player(peer({"hold-playback", "2"}));
    ASSERT_EQ(player.readLine(), "started");
    (void)capture.read(10'000);
    player.signal(SIGKILL);
    EXPECT_EQ(player.wait().exitCode, -SIGKILL);
    EXPECT_EQ(capture.read(100'000).size(), 100'000U);
}

TEST_F(AlsaProcessesTest, APlaybackGoesOnWhenTheRecordersProcessIsKilled) {
    const AlsaPcm playback(kPlayback, {2});
    Subprocess recorder(peer({"hold-recording"}));
    ASSERT_EQ(recorder.readLine(), "started");
    const Signals silence(2, Signal(512));
    playback.write(silence);
    playback.start();
    for (int i = 0; i < 20; ++i)
        playback.write(silence);
    recorder.signal(SIGKILL);
    EXPECT_EQ(recorder.wait().exitCode, -SIGKILL);
    for (int i = 0; i < 200; ++i)
        playback.write(silence);
    playback.drain();
}

TEST_F(AlsaProcessesTest, AnotherPlayerTakesThePlaceOfAKilledOne) {
    const AlsaPcm capture(kCapture, {.channels = 1, .buffer = 4096});
    capture.start();
    {
        Subprocess killed(peer({"hold-playback", "2"}));
        ASSERT_EQ(killed.readLine(), "started");
        killed.signal(SIGKILL);
        (void)killed.wait();
    }
    Subprocess player(peer({"play", "2", "100", "6000"}));
    ASSERT_EQ(player.readLine(), "started");
    (void)capture.read(static_cast<std::size_t>(playbackOffset()));
    EXPECT_LT(worstErrorDb(capture.read(8000), delayed(responses[1], 100, 8000)), -120.0);
    EXPECT_EQ(player.readLine(), "drained");
}

TEST_F(AlsaProcessesTest, ARoomWhoseProcessesWereAllKilledIsMadeAnew) {
    for (int turn = 0; turn < 2; ++turn) {
        Subprocess recorder(peer({"hold-recording"}));
        ASSERT_EQ(recorder.readLine(), "started");
        Subprocess player(peer({"hold-playback", "2"}));
        ASSERT_EQ(player.readLine(), "started");
        player.signal(SIGKILL);
        recorder.signal(SIGKILL);
        (void)player.wait();
        (void)recorder.wait();
    }
    const AlsaPcm capture(kCapture, {1});
    capture.start();
    EXPECT_EQ(capture.read(5000), Signal(5000));
}

TEST_F(AlsaProcessesTest, AProcessKilledAtAnyMomentLeavesTheRoomUsable) {
    const AlsaPcm capture(kCapture, {1});
    capture.start();
    for (std::size_t turn = 0; turn < 10; ++turn) {
        Subprocess player(peer({"hold-playback", "2"}));
        ASSERT_EQ(player.readLine(), "started");
        (void)capture.read(1 + 997 * turn);
        player.signal(SIGKILL);
        (void)player.wait();
    }
    EXPECT_EQ(capture.read(5000).size(), 5000U);
}

TEST_F(AlsaProcessesTest, TheRoomIsBusyForAThirdProcess) {
    const AlsaPcm playback(kPlayback, {2});
    Subprocess player(peer({"play", "2", "0", "100"}));
    const ProcessResult result = player.wait();
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.errors, HasSubstr("Device or resource busy"));
}

TEST_F(PacedAlsaProcessesTest, AplayAndArecordRunInTheRoom) {
    if (!std::filesystem::exists("/usr/bin/aplay"))
        GTEST_SKIP() << "alsa-utils is not installed";
    roomsim::writeWavFile(files.path("impulse.wav"),
                          {48000, {Signal(24'000), impulse(24'000, 3, 1)}});
    Subprocess recorder({"/usr/bin/arecord", "-q", "-D", "room", "-f", "FLOAT_LE", "-r", "48000",
                         "-d", "3", "--buffer-time=1000000", files.path("heard.wav").string()},
                        {}, foreignEnvironment());
    ASSERT_TRUE(eventually([this] {
        const auto room = roomsim::SharedRoom::inspect(files.room());
        return room && room->of(Role::kCapture).running;
    }));
    const ProcessResult played =
        runProcess({"/usr/bin/aplay", "-q", "-D", "room", files.path("impulse.wav").string()}, {},
                   foreignEnvironment());
    EXPECT_EQ(played.exitCode, 0) << played.errors;
    const ProcessResult recorded = recorder.wait();
    EXPECT_EQ(recorded.exitCode, 0) << recorded.errors;
    const Signal heard = roomsim::readWavFile(files.path("heard.wav")).channels.front();
    const auto onset = std::ranges::find_if(heard, [](float sample) { return sample != 0.0F; });
    ASSERT_NE(onset, heard.end());
    const auto whole =
        std::search(heard.begin(), heard.end(), responses[1].begin(), responses[1].end(),
                    [](float a, float b) { return std::abs(a - b) < 1e-6F; });
    EXPECT_NE(whole, heard.end());
}

TEST_F(AlsaProcessesTest, TheToolTellsWhoIsInTheRoom) {
    const auto status = [this] {
        return runProcess({VESK_ROOM_TOOL, "status", files.room().string()}).output;
    };
    EXPECT_EQ(status(), "nobody is in the room\n");
    const AlsaPcm capture(kCapture, {1});
    capture.start();
    EXPECT_THAT(status(), HasSubstr("playback: not running\n"));
    EXPECT_THAT(status(), HasSubstr("capture: running, started at 0 s (start 1)\n"));
}

TEST_F(AlsaProcessesTest, TheToolWritesTheResponses) {
    const std::string wav = files.path("out.wav").string();
    const ProcessResult result =
        runProcess({VESK_ROOM_TOOL, "responses", files.room().string(), wav});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(roomsim::readWavFile(wav).channels, responses);
}

TEST_F(AlsaProcessesTest, TheToolPrintsAConfigurationThatWorks) {
    const ProcessResult result = runProcess({VESK_ROOM_TOOL, "config", files.room().string()});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    std::ofstream(files.path("asound.conf")) << result.output;
    snd_config_update_free_global();
    EXPECT_EQ(openResult(kPlayback), 0);
}

TEST_F(AlsaProcessesTest, TheExampleConfigurationTakesRoomAndPluginFromTheEnvironment) {
    std::filesystem::copy_file(VESK_EXAMPLE_ROOMS "/asound.conf", files.path("asound.conf"),
                               std::filesystem::copy_options::overwrite_existing);
    setenv("VESK_ROOM_PLUGIN", VESK_ROOM_PLUGIN, 1);
    setenv("VESK_ROOM", files.room().c_str(), 1);
    snd_config_update_free_global();
    EXPECT_EQ(openResult(kPlayback), 0);
    setenv("VESK_ROOM", "/none.json", 1);
    snd_config_update_free_global();
    EXPECT_EQ(openResult(kPlayback), -ENOENT);
    unsetenv("VESK_ROOM");
    unsetenv("VESK_ROOM_PLUGIN");
}

class ExampleRoom : public testing::TestWithParam<const char*> {};

TEST_P(ExampleRoom, HasAUsableResponseFromEachSpeakerToEachMicrophone) {
    const std::string file = std::string(VESK_EXAMPLE_ROOMS "/") + GetParam();
    auto room = roomsim::readRoomDescription(file);
    for (room.microphone = 0; room.microphone < room.microphones.size(); ++room.microphone) {
        const Signals responses = roomsim::impulseResponses(room, 48000);
        ASSERT_EQ(responses.size(), room.speakers.size());
        for (const Signal& response : responses) {
            const double level =
                rmsDb(response) + 10.0 * std::log10(static_cast<double>(response.size()));
            EXPECT_GT(level, -60.0);
            EXPECT_LT(level, 0.0);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Each, ExampleRoom,
                         testing::Values("living-room.json", "living-room-2.1.json"));

TEST_F(AlsaProcessesTest, TheToolRefusesADamagedRoom) {
    const ProcessResult result = runProcess({VESK_ROOM_TOOL, "config", "/none.json"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.errors, "vesk-room: /none.json: cannot be read\n");
}

TEST_F(AlsaProcessesTest, TheToolTellsWrongUsageFromFailure) {
    for (const std::vector<std::string>& wrong :
         {std::vector<std::string>{VESK_ROOM_TOOL},
          {VESK_ROOM_TOOL, "paint"},
          {VESK_ROOM_TOOL, "responses", "room.json", "out.wav", "--rate", "1"}}) {
        const ProcessResult result = runProcess(wrong);
        EXPECT_EQ(result.exitCode, 2) << result.errors;
        EXPECT_EQ(result.output, "");
        EXPECT_TRUE(result.errors.starts_with("vesk-room: ")) << result.errors;
    }
}

TEST_F(AlsaProcessesTest, TheToolTellsItsVersion) {
    const ProcessResult result = runProcess({VESK_ROOM_TOOL, "--version"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_TRUE(result.output.starts_with("vesk-room ")) << result.output;
}

}  // namespace
