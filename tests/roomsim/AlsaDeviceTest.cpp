// A room as a sound card: pacing, xruns, polling, stopping, errors.

#include "roomsim/AlsaPcm.h"
#include "roomsim/MonotonicClock.h"
#include "roomsim/SharedRoom.h"
#include "support/Eventually.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <future>
#include <thread>

namespace {

using nlohmann::json;
using testing::HasSubstr;

constexpr auto kPlayback = SND_PCM_STREAM_PLAYBACK;
constexpr auto kCapture = SND_PCM_STREAM_CAPTURE;

/// A room with one speaker that runs at its own pace.
json pacedRoom(double speed) {
    json room = measuredRoom(1);
    room["pace"] = speed;
    return room;
}

/// A room in which a buffer of 65536 frames lasts 0.7 s, long enough for a busy machine.
class AlsaDeviceTest : public testing::Test {
protected:
    explicit AlsaDeviceTest(double speed = 2.0) : files(pacedRoom(speed)), alsa(files) {
        files.addWav("responses.wav", 48000, {{1.0F}});
    }

    RoomFiles files;
    AlsaRoom alsa;
};

/// So slow that nothing happens while a test waits: a second takes 100.
class SlowAlsaDeviceTest : public AlsaDeviceTest {
protected:
    SlowAlsaDeviceTest() : AlsaDeviceTest(0.01) {}
};

/// For tests that wait for an xrun.
class FastAlsaDeviceTest : public AlsaDeviceTest {
protected:
    FastAlsaDeviceTest() : AlsaDeviceTest(20.0) {}
};

/// Runs a call in a thread of its own and tells when it sleeps in the kernel.
class BlockedCall {
public:
    template <typename Call>
    explicit BlockedCall(Call call)
        : result_(std::async(std::launch::async, [this, call] {
              thread_ = static_cast<pid_t>(syscall(SYS_gettid));
              return static_cast<long>(call());
          })) {}

    [[nodiscard]] bool isBlocked() const {
        return eventually([this] { return thread_ != 0 && isInPoll(); });
    }
    long result() { return result_.get(); }

private:
    [[nodiscard]] bool isInPoll() const {
        std::ifstream file("/proc/self/task/" + std::to_string(thread_) + "/syscall");
        long number = -1;
        file >> number;
#ifdef SYS_poll
        if (number == SYS_poll)
            return true;
#endif
        return number == SYS_ppoll;
    }

    std::atomic<pid_t> thread_{0};
    std::future<long> result_;
};

TEST_F(AlsaDeviceTest, PositionsFollowTheMachinesClockTimesTheSpeed) {
    const AlsaPcm capture(kCapture, {.channels = 1, .buffer = 65536});
    const auto before = roomsim::monotonicNow();
    capture.start();
    const auto after = roomsim::monotonicNow();
    snd_pcm_sframes_t available = 0;
    while (available < 20'000) {
        const auto asked = roomsim::monotonicNow();
        available = snd_pcm_avail(capture);
        const auto answered = roomsim::monotonicNow();
        constexpr double kFramesPerNanosecond = 48000 * 2.0 * 1e-9;
        ASSERT_GE(static_cast<double>(available),
                  static_cast<double>(asked - after) * kFramesPerNanosecond - 2.0);
        ASSERT_LE(static_cast<double>(available),
                  static_cast<double>(answered - before) * kFramesPerNanosecond + 1.0);
    }
}

TEST_F(AlsaDeviceTest, WhatIsPlayedIsRecordedAtTheExactFrame) {
    const Signal response = randomResponse(5000, 1);
    files.addWav("responses.wav", 48000, {response});
    const AlsaPcm capture(kCapture, {.channels = 1, .period = 480, .buffer = 48'000});
    const AlsaPcm playback(kPlayback, {.channels = 1, .buffer = 32'768});
    playback.write({impulse(6000, 777, 1.0F)});
    capture.start();
    playback.start();
    const auto room = roomsim::SharedRoom::inspect(files.room()).value();
    const auto later = static_cast<std::size_t>(
        (room.of(roomsim::Role::kPlayback).start - room.of(roomsim::Role::kCapture).start) /
        roomsim::flicksPerFrame(48000));
    (void)capture.read(later);
    EXPECT_LT(worstErrorDb(capture.read(8000), delayed(response, 777, 8000)), -120.0);
}

TEST_F(AlsaDeviceTest, ABlockedReadReturnsWhenItsFramesAreRecorded) {
    const AlsaPcm capture(kCapture, {.channels = 1, .period = 1024, .buffer = 65536});
    const auto before = roomsim::monotonicNow();
    capture.start();
    (void)capture.read(9600);
    EXPECT_GE(roomsim::monotonicNow() - before, 100'000'000 - 100'000);
}

TEST_F(AlsaDeviceTest, DrainingTakesAsLongAsTheSoundAndPlaysAll) {
    const AlsaPcm playback(kPlayback, {.channels = 1, .buffer = 32768});
    playback.write({Signal(9600)});
    const auto before = roomsim::monotonicNow();
    playback.drain();
    EXPECT_GE(roomsim::monotonicNow() - before, 100'000'000 - 100'000);
    EXPECT_EQ(playback.state(), SND_PCM_STATE_SETUP);
}

TEST_F(AlsaDeviceTest, ABufferPlayedExactlyDrains) {
    const AlsaPcm playback(kPlayback, {.channels = 1, .period = 512, .buffer = 4096});
    playback.write({Signal(4096)});
    playback.drain();
    EXPECT_EQ(playback.state(), SND_PCM_STATE_SETUP);
}

TEST_F(FastAlsaDeviceTest, APlaybackThatRunsDryReportsAnXrunAndRecovers) {
    const AlsaPcm playback(kPlayback, {1});
    playback.write({Signal(1024)});
    playback.start();
    EXPECT_TRUE(eventually([&] { return snd_pcm_avail(playback) == -EPIPE; }));
    EXPECT_EQ(playback.state(), SND_PCM_STATE_XRUN);
    EXPECT_EQ(playback.tryWrite({Signal(512)}), -EPIPE);
    EXPECT_EQ(snd_pcm_recover(playback, -EPIPE, 1), 0);
    playback.write({Signal(1024)});
    playback.drain();
}

TEST_F(FastAlsaDeviceTest, ARecordingThatIsNotReadReportsAnXrunAndRecovers) {
    const AlsaPcm capture(kCapture, {1});
    capture.start();
    Signal signal;
    EXPECT_TRUE(eventually([&] { return snd_pcm_avail(capture) == -EPIPE; }));
    EXPECT_EQ(capture.tryRead(512, signal), -EPIPE);
    EXPECT_TRUE(eventually([&] {
        EXPECT_EQ(snd_pcm_recover(capture, -EPIPE, 1), 0);
        return capture.tryRead(512, signal) == 512;
    }));
}

TEST_F(FastAlsaDeviceTest, AWaiterSeesTheXrun) {
    const AlsaPcm playback(kPlayback, {1});
    playback.write({Signal(1024)});
    playback.start();
    int result = 1;
    EXPECT_TRUE(eventually([&] {
        result = snd_pcm_wait(playback, 1000);
        return result < 0 || snd_pcm_avail_update(playback) < 0;
    }));
    EXPECT_EQ(playback.state(), SND_PCM_STATE_XRUN);
    EXPECT_EQ(snd_pcm_wait(playback, 1000), -EPIPE);
}

TEST_F(FastAlsaDeviceTest, WithoutAStopThresholdThePlaybackGoesOnInSilence) {
    const AlsaPcm playback(kPlayback, {1});
    snd_pcm_sw_params_t* params = nullptr;
    snd_pcm_sw_params_alloca(&params);
    snd_pcm_sw_params_current(playback, params);
    snd_pcm_uframes_t boundary = 0;
    snd_pcm_sw_params_get_boundary(params, &boundary);
    snd_pcm_sw_params_set_stop_threshold(playback, params, boundary);
    ASSERT_EQ(snd_pcm_sw_params(playback, params), 0);
    playback.write({Signal(512)});
    playback.start();
    EXPECT_TRUE(eventually([&] { return snd_pcm_avail(playback) > 8192; }));
    EXPECT_EQ(playback.state(), SND_PCM_STATE_RUNNING);
}

TEST_F(AlsaDeviceTest, WhoAsksForMoreFramesThanEverComeIsNotWoken) {
    const AlsaPcm capture(kCapture, {.channels = 1, .buffer = 65536});
    snd_pcm_sw_params_t* params = nullptr;
    snd_pcm_sw_params_alloca(&params);
    snd_pcm_sw_params_current(capture, params);
    snd_pcm_uframes_t boundary = 0;
    snd_pcm_sw_params_get_boundary(params, &boundary);
    snd_pcm_sw_params_set_avail_min(capture, params, boundary);
    ASSERT_EQ(snd_pcm_sw_params(capture, params), 0);
    capture.start();
    EXPECT_TRUE(eventually([&capture] { return snd_pcm_avail(capture) > 512; }));
    EXPECT_EQ(capture.poll(0), 0);
}

TEST_F(SlowAlsaDeviceTest, DropWakesABlockedRead) {
    const AlsaPcm capture(kCapture, {1});
    capture.start();
    BlockedCall read([&capture] {
        Signal signal;
        return capture.tryRead(512, signal);
    });
    EXPECT_TRUE(read.isBlocked());
    EXPECT_EQ(snd_pcm_drop(capture), 0);
    EXPECT_LT(read.result(), 512);
    EXPECT_EQ(capture.state(), SND_PCM_STATE_SETUP);
}

TEST_F(SlowAlsaDeviceTest, DropWakesABlockedWrite) {
    const AlsaPcm playback(kPlayback, {1});
    playback.write({Signal(4096)});
    playback.start();
    BlockedCall write([&playback] { return playback.tryWrite({Signal(4096)}); });
    EXPECT_TRUE(write.isBlocked());
    EXPECT_EQ(snd_pcm_drop(playback), 0);
    (void)write.result();
    EXPECT_EQ(playback.state(), SND_PCM_STATE_SETUP);
}

TEST_F(SlowAlsaDeviceTest, DropWakesABlockedDrain) {
    const AlsaPcm playback(kPlayback, {1});
    playback.write({Signal(4096)});
    playback.start();
    BlockedCall drain([&playback] { return snd_pcm_drain(playback); });
    EXPECT_TRUE(drain.isBlocked());
    EXPECT_EQ(snd_pcm_drop(playback), 0);
    (void)drain.result();
    EXPECT_EQ(playback.state(), SND_PCM_STATE_SETUP);
}

TEST_F(SlowAlsaDeviceTest, ClosingStopsAtOnce) {
    const auto before = roomsim::monotonicNow();
    {
        const AlsaPcm playback(kPlayback, {1});
        playback.write({Signal(4096)});
        playback.start();
    }
    EXPECT_LT(roomsim::monotonicNow() - before, 5'000'000'000);
}

TEST_F(SlowAlsaDeviceTest, NonBlockingCallsReturnAtOnce) {
    const AlsaPcm playback(kPlayback, {1}, SND_PCM_NONBLOCK);
    const AlsaPcm capture(kCapture, {1}, SND_PCM_NONBLOCK);
    Signal signal;
    EXPECT_EQ(capture.tryRead(512, signal), -EAGAIN);
    EXPECT_EQ(playback.tryWrite({Signal(5000)}), 4096);
    playback.start();
    EXPECT_EQ(playback.tryWrite({Signal(4096)}), -EAGAIN);
    EXPECT_EQ(snd_pcm_drain(playback), -EAGAIN);
    EXPECT_EQ(playback.state(), SND_PCM_STATE_DRAINING);
}

TEST_F(AlsaDeviceTest, ANonBlockingDrainEndsWhileItIsPolled) {
    const AlsaPcm playback(kPlayback, {1}, SND_PCM_NONBLOCK);
    playback.write({Signal(4096)});
    EXPECT_EQ(snd_pcm_drain(playback), -EAGAIN);
    EXPECT_TRUE(eventually([&] {
        (void)playback.poll(1000);
        const int result = snd_pcm_drain(playback);
        EXPECT_TRUE(result == 0 || result == -EAGAIN) << result;
        return playback.state() == SND_PCM_STATE_SETUP;
    }));
}

TEST_F(SlowAlsaDeviceTest, PollTellsWhatCanBeTransferred) {
    const AlsaPcm playback(kPlayback, {1});
    const AlsaPcm capture(kCapture, {1});
    EXPECT_EQ(playback.poll(0), POLLOUT);
    playback.write({Signal(4096)});
    EXPECT_EQ(playback.poll(0), 0);
    playback.start();
    EXPECT_EQ(playback.poll(0), 0);
    EXPECT_EQ(capture.poll(0), 0);
    capture.start();
    EXPECT_EQ(capture.poll(0), 0);
    snd_pcm_drop(capture);
    EXPECT_EQ(capture.poll(0), POLLIN | POLLERR);
    snd_pcm_drop(playback);
    EXPECT_EQ(playback.poll(0), POLLOUT | POLLERR);
}

TEST_F(AlsaDeviceTest, PollWakesWhenThePeriodIsThere) {
    const AlsaPcm capture(kCapture, {.channels = 1, .period = 1024, .buffer = 65536});
    capture.start();
    EXPECT_EQ(capture.poll(10'000), POLLIN);
    EXPECT_GE(snd_pcm_avail(capture), 1024);
}

TEST_F(AlsaDeviceTest, WaitTimesOutWhileNothingRuns) {
    const AlsaPcm capture(kCapture, {1});
    EXPECT_EQ(snd_pcm_wait(capture, 1), 0);
}

TEST_F(AlsaDeviceTest, DrainingARecordingEndsIt) {
    const AlsaPcm capture(kCapture, {1});
    capture.start();
    capture.drain();
    EXPECT_EQ(capture.state(), SND_PCM_STATE_SETUP);
}

TEST_F(AlsaDeviceTest, AStreamRunsAgainAfterStopping) {
    const AlsaPcm capture(kCapture, {.channels = 1, .buffer = 65536});
    for (int turn = 0; turn < 3; ++turn) {
        capture.start();
        EXPECT_EQ(capture.read(600), Signal(600));
        snd_pcm_drop(capture);
        capture.prepare();
    }
}

TEST_F(AlsaDeviceTest, TakesOneStreamOfEachKind) {
    const AlsaPcm playback(kPlayback, {1});
    const AlsaPcm capture(kCapture, {1});
    EXPECT_EQ(openResult(kPlayback), -EBUSY);
    EXPECT_THAT(AlsaRoom::complaints(),
                HasSubstr(files.room().string() + ": another stream plays in this room"));
    EXPECT_EQ(openResult(kCapture), -EBUSY);
}

TEST_F(AlsaDeviceTest, ClosingFreesItForTheNext) {
    for (int turn = 0; turn < 3; ++turn) {
        EXPECT_EQ(openResult(kPlayback), 0);
        EXPECT_EQ(openResult(kCapture), 0);
    }
}

TEST_F(AlsaDeviceTest, LeavesNothingBehind) {
    {
        const AlsaPcm playback(kPlayback, {1});
        const AlsaPcm capture(kCapture, {1});
        EXPECT_TRUE(roomsim::SharedRoom::inspect(files.room()).has_value());
    }
    EXPECT_FALSE(roomsim::SharedRoom::inspect(files.room()).has_value());
}

TEST_F(AlsaDeviceTest, AnUnpluggedMicrophoneIsNoDevice) {
    json room = pacedRoom(20.0);
    room["microphones"][0]["unpluggedAfterMs"] = 100;
    files.rewrite(room);
    const AlsaPcm capture(kCapture, {.channels = 1, .buffer = 65536});
    capture.start();
    EXPECT_EQ(capture.read(4800).size(), 4800U);
    Signal signal;
    EXPECT_EQ(capture.tryRead(512, signal), -ENODEV);
    EXPECT_EQ(capture.state(), SND_PCM_STATE_DISCONNECTED);
}

TEST_F(AlsaDeviceTest, OffersOneChannelPerSpeaker) {
    EXPECT_THROW(AlsaPcm(kPlayback, {2}), std::runtime_error);
    EXPECT_THROW(AlsaPcm(kCapture, {2}), std::runtime_error);
    EXPECT_THROW(AlsaPcm(kPlayback, {.channels = 1, .rate = 32000}), std::runtime_error);
}

TEST_F(AlsaDeviceTest, ADamagedRoomFailsToOpenWithFileAndKey) {
    json room = pacedRoom(1.0);
    room["noise"] = {{"levelDb", "low"}};
    files.rewrite(room);
    EXPECT_EQ(openResult(kPlayback), -EINVAL);
    EXPECT_THAT(AlsaRoom::complaints(),
                HasSubstr(files.room().string() + ": noise.levelDb: is not a number"));
}

TEST_F(AlsaDeviceTest, AMissingResponseFailsToOpenWithItsFile) {
    std::filesystem::remove(files.path("responses.wav"));
    EXPECT_EQ(openResult(kCapture), -ENOENT);
    EXPECT_THAT(AlsaRoom::complaints(), HasSubstr(files.path("responses.wav").string()));
}

TEST_F(AlsaDeviceTest, ARoomInUseKeepsItsSpeakers) {
    const AlsaPcm playback(kPlayback, {1});
    json room = measuredRoom(2);
    files.rewrite(room);
    files.addWav("responses.wav", 48000, {{1.0F}, {1.0F}});
    EXPECT_EQ(openResult(kCapture), -EINVAL);
    EXPECT_THAT(AlsaRoom::complaints(), HasSubstr("speakers: the room is in use with 1 of them"));
}

struct Entry {
    const char* text;
    int result;
    const char* complaint;
};

class AlsaEntry : public AlsaDeviceTest, public testing::WithParamInterface<Entry> {};

TEST_P(AlsaEntry, IsChecked) {
    std::string text = GetParam().text;
    if (const auto place = text.find('@'); place != std::string::npos)
        text.replace(place, 1, files.room().string());
    std::ofstream(files.path("asound.conf"), std::ios::app)
        << "pcm.other { type veskroom " << text << " }\n";
    snd_config_update_free_global();
    EXPECT_EQ(openResult(kPlayback, "other"), GetParam().result);
    EXPECT_THAT(AlsaRoom::complaints(), HasSubstr(GetParam().complaint));
}

INSTANTIATE_TEST_SUITE_P(
    Each, AlsaEntry,
    testing::Values(Entry{"room \"@\" role playback", 0, ""},
                    Entry{"room \"@\" microphone seat", 0, ""},
                    Entry{"room \"@\" role capture", -EINVAL, "\"role\" is \"capture\", which is"},
                    Entry{"room \"@\" role both", -EINVAL, "\"role\" is \"both\", which is not"},
                    Entry{"room \"@\" microphone roof", -EINVAL, "no microphone \"roof\""},
                    Entry{"room \"@\" volume 3", -EINVAL, "\"volume\" is not known"},
                    Entry{"room 3", -EINVAL, "\"room\" is not a text"},
                    Entry{"room \"/none.json\"", -ENOENT, "/none.json: cannot be read"},
                    Entry{"", -EINVAL, "\"room\", the path of the room's file, is missing"}));

}  // namespace
