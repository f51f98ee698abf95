// What a room records of what is played in it, through alsa-lib, with both streams in this process.

#include "roomsim/AlsaPcm.h"
#include "roomsim/SharedRoom.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <future>

namespace {

using nlohmann::json;
using roomsim::flicksPerFrame;
using roomsim::Role;

/// Frames, at `rate`, from the start of the recording to the start of the playback.
std::size_t playbackOffset(const RoomFiles& files, unsigned int rate) {
    const auto room = roomsim::SharedRoom::inspect(files.room()).value();
    const auto offset = room.of(Role::kPlayback).start - room.of(Role::kCapture).start;
    EXPECT_EQ(offset % flicksPerFrame(rate), 0);
    return static_cast<std::size_t>(offset / flicksPerFrame(rate));
}

class AlsaRecordingTest : public testing::Test {
protected:
    /// Plays `signals` while the room is recorded, and returns `length` frames from the first one
    /// played on. One thread: the recording has room for all.
    Signal recordingOf(const RoomFiles& files, const Signals& signals, std::size_t length,
                       StreamSetup playing, StreamSetup recording) {
        const AlsaRoom alsa(files);
        recording.buffer = 32768;
        playing.buffer = 32768;
        const AlsaPcm capture(SND_PCM_STREAM_CAPTURE, recording);
        const AlsaPcm playback(SND_PCM_STREAM_PLAYBACK, playing);
        capture.start();
        playback.write(signals);
        playback.start();
        const std::size_t before = playbackOffset(files, recording.rate);
        (void)capture.read(before);
        playback.drain();
        return capture.read(length);
    }

    Signal recordingOf(const RoomFiles& files, const Signals& signals, std::size_t length) {
        const auto channels = static_cast<unsigned int>(signals.size());
        return recordingOf(files, signals, length, {channels}, {1});
    }
};

TEST_F(AlsaRecordingTest, AnImpulseComesBackAsTheResponseAtTheExactFrame) {
    const RoomFiles files(measuredRoom(1));
    const Signal response = randomResponse(7000, 1);
    files.addWav("responses.wav", 48000, {response});
    const Signal recording = recordingOf(files, {impulse(5000, 1234, 1.0F)}, 12000);
    EXPECT_LT(worstErrorDb(recording, delayed(response, 1234, 12000)), -120.0);
    EXPECT_TRUE(std::all_of(recording.begin(), recording.begin() + 1000,
                            [](float sample) { return sample == 0.0F; }));
}

TEST_F(AlsaRecordingTest, AllSpeakersAddUpEachWithItsOwnResponse) {
    const RoomFiles files(measuredRoom(3));
    const Signals responses{randomResponse(5000, 1), randomResponse(5000, 2),
                            randomResponse(5000, 3)};
    files.addWav("responses.wav", 48000, responses);
    const Signals signals{randomSignal(6000, 4), randomSignal(6000, 5), randomSignal(6000, 6)};
    EXPECT_LT(worstErrorDb(recordingOf(files, signals, 12000),
                           convolvedDirectly(signals, responses, 12000)),
              -120.0);
}

TEST_F(AlsaRecordingTest, TheLatencyIsInFrames) {
    json room = measuredRoom(1);
    room["latencyMs"] = 2.5;
    const RoomFiles files(room);
    files.addWav("responses.wav", 48000, {{0.5F}});
    const Signal signal = randomSignal(3000, 1);
    const Signal expected = convolvedDirectly({delayed(signal, 120, 4000)}, {{0.5F}}, 4000);
    EXPECT_LT(worstErrorDb(recordingOf(files, {signal}, 4000), expected), -120.0);
}

TEST_F(AlsaRecordingTest, AShoeboxIsHeardAsComputed) {
    json room = shoeboxRoom();
    room["pace"] = "lockstep";
    room["latencyMs"] = 0;
    const RoomFiles files(room);
    const Signals signals{randomSignal(4000, 1), randomSignal(4000, 2)};
    const roomsim::ImageSource images({{5.0, 4.0, 2.5}, {.4, .4, .4, .4, .4, .4}, 0.1}, 343.0,
                                      48000);
    const Signals responses{images.response({1.5, 0.8, 1.1}, {2.5, 2.8, 1.2}),
                            images.response({3.5, 0.8, 1.1}, {2.5, 2.8, 1.2})};
    EXPECT_LT(worstErrorDb(recordingOf(files, signals, 9000),
                           convolvedDirectly(signals, responses, 9000)),
              -120.0);
}

TEST_F(AlsaRecordingTest, IntegersArriveWithTheirPrecision) {
    const RoomFiles files(measuredRoom(1));
    files.addWav("responses.wav", 48000, {{1.0F}});
    const Signal signal = randomSignal(3000, 1);
    const auto errorWith = [&](snd_pcm_format_t playing, snd_pcm_format_t recording) {
        return worstErrorDb(recordingOf(files, {signal}, 3000, {.channels = 1, .format = playing},
                                        {.channels = 1, .format = recording}),
                            signal);
    };
    EXPECT_LT(errorWith(SND_PCM_FORMAT_S32_LE, SND_PCM_FORMAT_S32_LE), -120.0);
    EXPECT_LT(errorWith(SND_PCM_FORMAT_FLOAT_LE, SND_PCM_FORMAT_S32_LE), -120.0);
    EXPECT_LT(errorWith(SND_PCM_FORMAT_S16_LE, SND_PCM_FORMAT_FLOAT_LE), -88.0);
    EXPECT_LT(errorWith(SND_PCM_FORMAT_FLOAT_LE, SND_PCM_FORMAT_S16_LE), -88.0);
}

TEST_F(AlsaRecordingTest, TooMuchSoundIsClippedAtFullScale) {
    json room = measuredRoom(1);
    room["microphones"][0]["gainDb"] = 20;
    const RoomFiles files(room);
    files.addWav("responses.wav", 48000, {{1.0F}});
    const Signal recording = recordingOf(files, {sine(2000, 0.01)}, 2000, {1},
                                         {.channels = 1, .format = SND_PCM_FORMAT_S32_LE});
    EXPECT_EQ(*std::ranges::max_element(recording), 1.0F);
    EXPECT_EQ(*std::ranges::min_element(recording), -1.0F);
}

class AlsaRate : public AlsaRecordingTest, public testing::WithParamInterface<unsigned int> {};

TEST_P(AlsaRate, GivesTheResponseBack) {
    const RoomFiles files(measuredRoom(1));
    const Signal response = randomResponse(3000, 1);
    files.addWav("responses.wav", GetParam(), {response});
    const Signal recording =
        recordingOf(files, {impulse(100, 10, 1.0F)}, 4000, {.channels = 1, .rate = GetParam()},
                    {.channels = 1, .rate = GetParam()});
    EXPECT_LT(worstErrorDb(recording, delayed(response, 10, 4000)), -120.0);
}

INSTANTIATE_TEST_SUITE_P(Each, AlsaRate,
                         testing::Values(44100, 48000, 88200, 96000, 176400, 192000));

TEST_F(AlsaRecordingTest, AMicrophoneAtAnotherRateHearsTheSame) {
    const RoomFiles files(measuredRoom(1));
    files.addWav("responses.wav", 96000, {{1.0F}});
    const Signal tone = sine(30'000, 1000.0 / 96000);
    const Signal recording = recordingOf(files, {tone}, 14'000, {.channels = 1, .rate = 96000},
                                         {.channels = 1, .rate = 48000});
    // 1 kHz at half the rate; the interpolation's delay shifts its phase.
    const Signal middle(recording.begin() + 2000, recording.begin() + 12'000);
    EXPECT_NEAR(rmsDb(middle), 20.0 * std::log10(0.5) - 3.01, 0.01);
    const double cosine = std::cos(2.0 * M_PI * 1000.0 / 48000);
    for (std::size_t n = 1; n + 1 < middle.size(); ++n)
        ASSERT_NEAR(static_cast<double>(middle[n - 1]) + static_cast<double>(middle[n + 1]),
                    2.0 * cosine * static_cast<double>(middle[n]), 1e-4);
}

TEST_F(AlsaRecordingTest, ADriftingMicrophoneHearsAnotherPitch) {
    json room = measuredRoom(1);
    room["driftPpm"] = 2000;
    const RoomFiles files(room);
    files.addWav("responses.wav", 48000, {{1.0F}});
    const Signal recording = recordingOf(files, {sine(30'000, 0.1)}, 20'000);
    // Zero crossings upwards, interpolated: the pitch of 0.1 cycles per sample falls by 2000 ppm.
    std::vector<double> crossings;
    for (std::size_t n = 1000; n < 19'000; ++n) {
        if (recording[n] < 0.0F && recording[n + 1] >= 0.0F)
            crossings.push_back(
                static_cast<double>(n) +
                static_cast<double>(recording[n] / (recording[n] - recording[n + 1])));
    }
    const double period =
        (crossings.back() - crossings.front()) / static_cast<double>(crossings.size() - 1);
    EXPECT_NEAR(period, 10.02, 0.0005);
}

TEST_F(AlsaRecordingTest, TheNoiseFloorHasItsLevelAndIsRepeatable) {
    json room = measuredRoom(1);
    room["noise"] = {{"levelDb", -70}, {"seed", 1}};
    const RoomFiles files(room);
    files.addWav("responses.wav", 48000, {{1.0F}});
    const auto record = [&files] {
        const AlsaRoom alsa(files);
        const AlsaPcm capture(SND_PCM_STREAM_CAPTURE, {1});
        capture.start();
        return capture.read(100'000);
    };
    const Signal first = record();
    EXPECT_NEAR(rmsDb(first), -70.0, 0.1);
    EXPECT_EQ(record(), first);
    room["noise"]["seed"] = 2;
    files.rewrite(room);
    EXPECT_NE(record(), first);
}

TEST_F(AlsaRecordingTest, WithoutNoiseSilenceIsZero) {
    const RoomFiles files(measuredRoom(1));
    files.addWav("responses.wav", 48000, {randomResponse(3000, 1)});
    const AlsaRoom alsa(files);
    const AlsaPcm capture(SND_PCM_STREAM_CAPTURE, {1});
    capture.start();
    EXPECT_EQ(capture.read(10'000), Signal(10'000));
}

TEST_F(AlsaRecordingTest, TheEnvironmentChoosesTheMicrophone) {
    json room = measuredRoom(1);
    room["microphones"].push_back({{"name", "far"}, {"responses", "far.wav"}});
    const RoomFiles files(room);
    files.addWav("responses.wav", 48000, {{0.5F}});
    files.addWav("far.wav", 48000, {{0.0F, 0.25F}});
    const Signals signals{impulse(100, 10, 1.0F)};
    EXPECT_FLOAT_EQ(recordingOf(files, signals, 100)[10], 0.5F);
    setenv("VESK_ROOM_MIC", "far", 1);
    EXPECT_FLOAT_EQ(recordingOf(files, signals, 100)[11], 0.25F);
    unsetenv("VESK_ROOM_MIC");
}

TEST_F(AlsaRecordingTest, MappedMemoryWorksAsWell) {
    const RoomFiles files(measuredRoom(2));
    const Signals responses{randomResponse(2000, 1), randomResponse(2000, 2)};
    files.addWav("responses.wav", 48000, responses);
    const AlsaRoom alsa(files);
    const AlsaPcm capture(SND_PCM_STREAM_CAPTURE,
                          {.channels = 1, .access = SND_PCM_ACCESS_MMAP_INTERLEAVED});
    const AlsaPcm playback(SND_PCM_STREAM_PLAYBACK,
                           {.channels = 2, .access = SND_PCM_ACCESS_MMAP_INTERLEAVED});
    const Signals signals{randomSignal(3000, 3), randomSignal(3000, 4)};
    capture.start();
    std::vector<float> interleaved;
    for (std::size_t i = 0; i < 3000; ++i)
        interleaved.insert(interleaved.end(), {signals[0][i], signals[1][i]});
    ASSERT_EQ(snd_pcm_mmap_writei(playback, interleaved.data(), 3000), 3000);
    playback.start();
    Signal recording(playbackOffset(files, 48000) + 3000);
    std::size_t done = 0;
    while (done < recording.size()) {
        const auto got =
            snd_pcm_mmap_readi(capture, recording.data() + done, recording.size() - done);
        ASSERT_GT(got, 0);
        done += static_cast<std::size_t>(got);
    }
    EXPECT_LT(worstErrorDb(Signal(recording.end() - 3000, recording.end()),
                           convolvedDirectly(signals, responses, 3000)),
              -120.0);
}

/// Records until a sound has come and gone; it may be long in coming.
Signal soundIn(const AlsaPcm& capture) {
    constexpr std::size_t kBlock = 4096;
    Signal sound;
    for (std::size_t blocks = 0; blocks < 20'000; ++blocks) {
        const Signal block = capture.read(kBlock);
        const bool silent = std::ranges::all_of(block, [](float s) { return s == 0.0F; });
        if (silent && !sound.empty())
            break;
        if (!silent)
            sound.insert(sound.end(), block.begin(), block.end());
    }
    return sound;
}

TEST_F(AlsaRecordingTest, PlugConvertsWhatTheRoomDoesNotTake) {
    const RoomFiles files(measuredRoom(2));
    files.addWav("responses.wav", 48000, {impulse(400, 200, 1.0F), Signal(400)});
    const AlsaRoom alsa(files);
    const AlsaPcm capture(SND_PCM_STREAM_CAPTURE, {1});
    snd_pcm_t* handle = nullptr;
    ASSERT_EQ(snd_pcm_open(&handle, "plug:room", SND_PCM_STREAM_PLAYBACK, 0), 0);
    ASSERT_EQ(snd_pcm_set_params(handle, SND_PCM_FORMAT_S16_LE, SND_PCM_ACCESS_RW_INTERLEAVED, 1,
                                 32000, 1, 100'000),
              0);
    capture.start();
    auto recording = std::async(std::launch::async, [&capture] { return soundIn(capture); });
    const std::vector<std::int16_t> tone(16'000, 8192);
    EXPECT_EQ(snd_pcm_writei(handle, tone.data(), tone.size()), 16'000);
    snd_pcm_drain(handle);
    snd_pcm_close(handle);
    const Signal heard = recording.get();
    const auto loud =
        std::ranges::count_if(heard, [](float sample) { return std::abs(sample - 0.25F) < 0.02F; });
    EXPECT_NEAR(static_cast<double>(loud), 24'000.0, 500.0);  // half a second, at 48 kHz
}

TEST_F(AlsaRecordingTest, TwoThreadsInSmallPeriodsLoseNothing) {
    const RoomFiles files(measuredRoom(2));
    const Signals responses{randomResponse(6000, 1), randomResponse(6000, 2)};
    files.addWav("responses.wav", 48000, responses);
    const AlsaRoom alsa(files);
    const AlsaPcm capture(SND_PCM_STREAM_CAPTURE, {.channels = 1, .period = 128, .buffer = 1024});
    const AlsaPcm playback(SND_PCM_STREAM_PLAYBACK, {.channels = 2, .period = 128, .buffer = 1024});
    const Signals signals{randomSignal(20'000, 3), randomSignal(20'000, 4)};
    playback.write({Signal(1000), Signal(1000)});
    capture.start();
    playback.start();
    const std::size_t before = playbackOffset(files, 48000) + 1000;
    auto recording = std::async(std::launch::async, [&] { return capture.read(before + 20'000); });
    playback.write(signals);
    playback.drain();
    const Signal heard = recording.get();
    EXPECT_LT(worstErrorDb(Signal(heard.end() - 20'000, heard.end()),
                           convolvedDirectly(signals, responses, 20'000)),
              -120.0);
}

TEST_F(AlsaRecordingTest, DroppedSoundIsNotHeard) {
    const RoomFiles files(measuredRoom(1));
    files.addWav("responses.wav", 48000, {{1.0F}});
    const AlsaRoom alsa(files);
    const AlsaPcm capture(SND_PCM_STREAM_CAPTURE, {1});
    const AlsaPcm playback(SND_PCM_STREAM_PLAYBACK, {1});
    capture.start();  // its buffer is full at once, and holds the room's time
    playback.write({Signal(4096, 0.5F)});
    playback.start();
    EXPECT_EQ(snd_pcm_drop(playback), 0);
    EXPECT_EQ(capture.read(20'000), Signal(20'000));
}

TEST_F(AlsaRecordingTest, SoundIsHeardAsFarAsItWasPlayedBeforeItWasDropped) {
    const RoomFiles files(measuredRoom(1));
    files.addWav("responses.wav", 48000, {{1.0F}});
    const AlsaRoom alsa(files);
    const AlsaPcm capture(SND_PCM_STREAM_CAPTURE, {1});
    const AlsaPcm playback(SND_PCM_STREAM_PLAYBACK, {1});
    capture.start();
    playback.write({Signal(4096, 0.5F)});
    playback.start();
    (void)capture.read(1000);  // lets the room's time go on by as much
    EXPECT_EQ(snd_pcm_drop(playback), 0);
    (void)capture.read(playbackOffset(files, 48000) - 1000);
    const Signal heard = capture.read(4096);
    EXPECT_EQ(std::ranges::count_if(heard, [](float sample) { return sample > 0.25F; }), 1000);
}

TEST_F(AlsaRecordingTest, ARecordingThatBeginsLaterHearsTheReverberation) {
    const RoomFiles files(measuredRoom(1));
    const Signal response = randomResponse(6000, 1);
    files.addWav("responses.wav", 48000, {response});
    const AlsaRoom alsa(files);
    const AlsaPcm playback(SND_PCM_STREAM_PLAYBACK, {1});
    const AlsaPcm capture(SND_PCM_STREAM_CAPTURE, {1});
    playback.write({impulse(2000, 100, 1.0F)});
    playback.start();
    playback.drain();
    capture.start();
    const auto room = roomsim::SharedRoom::inspect(files.room()).value();
    const auto late = static_cast<std::size_t>(
        (room.of(Role::kCapture).start - room.of(Role::kPlayback).start) / flicksPerFrame(48000));
    ASSERT_EQ(late, 2000U);
    EXPECT_LT(
        worstErrorDb(capture.read(4000), Signal(response.begin() + 1900, response.begin() + 5900)),
        -110.0);  // the late part of the response is 20 dB down
}

}  // namespace
