#include "calibrate/Errors.h"
#include "calibrate/measurement/LogSweep.h"
#include "calibrate/support/CommandFixture.h"
#include "roomsim/AlsaPcm.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cmath>
#include <mutex>
#include <optional>
#include <thread>

namespace calibrate {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

constexpr unsigned kRate = 48'000;
constexpr double kLater = 0.001;  // s by which the right speaker is heard later

/// A device that plays into a room. What the room's microphone hears it can record itself, unless
/// somebody else does.
class LocalMicrophoneTest : public CommandFixture {
protected:
    LocalMicrophoneTest() {
        room_["pace"] = 4;
        room_["noise"] = {{"levelDb", -80}};
        room_["latencyMs"] = 5;
        device_.setMode(false, false, false);
        device_.setGains({-20, 0, {{0, -9}, {1, -9}}});
        dio::endpoint::LogSweepInfo info;
        info.set_sample_rate(kRate);
        info.set_start_frequency(static_cast<float>(sweep_.startFrequency));
        info.set_end_frequency(static_cast<float>(sweep_.endFrequency));
        info.set_length(static_cast<unsigned>(sweep_.length));
        info.set_silence(static_cast<unsigned>(sweep_.silence));
        info.set_fade_out_tail(sweep_.fadeOutTail);
        info.set_num_periods(1);
        device_.sweeps = {info};
        device_.onStartStimuli = [this](auto*, auto* writer) {
            play(
                [&](double percent) { EndpointDouble::send(writer, static_cast<float>(percent)); });
            return grpc::Status::OK;
        };
        device_.onRecording = [this](auto* context, auto* writer) {
            return record(context, writer);
        };
    }

    ~LocalMicrophoneTest() override { device_.vanish(); }

    void enter() {
        files_.emplace(room_);
        files_->addWav("responses.wav", kRate, {response(0, 0.5F), response(1, 0.4F)});
        alsa_.emplace(*files_);
    }

    int calibrate(const std::string& folder, std::vector<std::string> arguments) {
        device_.awaitCancelledCalls(device_.callsOf("Notifications"));
        arguments.insert(arguments.begin(), {"run", "-o", path(folder), "--no-verify"});
        return run(arguments);
    }

    void expectFailure(int exitCode, const std::string& words,
                       std::vector<std::string> arguments = {"--mic", "room"}) {
        EXPECT_EQ(calibrate("out", std::move(arguments)), exitCode);
        EXPECT_THAT(errors(), HasSubstr(words));
        EXPECT_THAT(device_.stored(), SizeIs(0));
        EXPECT_EQ(device_.gains().stimuli, (std::map<int, double>{{0, -9}, {1, -9}}));
    }

    nlohmann::json room_ = measuredRoom(2);

private:
    /// The direct sound and one wall's echo.
    static Signal response(int speaker, float level) {
        Signal signal(4'800);
        const auto direct = static_cast<std::size_t>(480 + kLater * kRate * speaker);
        signal[direct] = level;
        signal[direct + 170] = 0.4F * level;
        return signal;
    }

    /// The sweeps that were prepared, one after the other, as fast as the room takes them.
    void play(const std::function<void(double)>& progress) const {
        const auto sweep = measurement::sweepSamples(sweep_);
        const auto prepared = device_.prepared();
        const AlsaPcm playback(SND_PCM_STREAM_PLAYBACK, {.channels = 2, .buffer = 32'768});
        constexpr std::size_t kBlock = 4'800;
        std::size_t written = 0;
        for (int i = 0; i < prepared.speakers_size(); ++i) {
            const int speaker = static_cast<int>(prepared.speakers(i));
            const auto gain =
                static_cast<float>(std::pow(10, device_.gains().stimuli.at(speaker) / 20));
            for (std::size_t start = 0; start < sweep.size(); start += kBlock) {
                Signals block(2, Signal(kBlock));
                for (std::size_t k = 0; k < kBlock && start + k < sweep.size(); ++k)
                    block[static_cast<std::size_t>(speaker)][k] = gain * sweep[start + k];
                playback.write(block);
                if (++written == 4)
                    playback.start();
            }
            progress(100.0 * (i + 1) / prepared.speakers_size());
        }
        playback.drain();
    }

    grpc::Status record(EndpointDouble::Context* context, EndpointDouble::AudioWriter* writer) {
        // The recording before may still be about to end.
        const std::lock_guard one(recording_);
        const AlsaPcm capture(SND_PCM_STREAM_CAPTURE, {.channels = 1, .buffer = 32'768});
        capture.start();
        std::atomic<bool> over{false};
        std::jthread player;
        if (device_.lastCallOf({"StartStreaming", "StartRecordingStimuli"}) != "StartStreaming")
            player = std::jthread([&] {
                play([](double) {});
                over = true;
            });
        while (!over && !context->IsCancelled())
            EndpointDouble::send(writer, capture.read(2'400));
        if (over)
            EndpointDouble::send(writer, capture.read(24'000));
        return grpc::Status::OK;
    }

    std::mutex recording_;
    const measurement::LogSweep sweep_{10, 24'000, 72'000, 14'400, 1, kRate, 300};
    std::optional<RoomFiles> files_;
    std::optional<AlsaRoom> alsa_;
};

/// dB by which two filters differ, of the first one's energy.
double difference(const std::vector<float>& a, const std::vector<float>& b) {
    double error = 0;
    double energy = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        const double other = i < b.size() ? static_cast<double>(b[i]) : 0;
        const double own = static_cast<double>(a[i]);
        error += (own - other) * (own - other);
        energy += own * own;
    }
    return 10 * std::log10(error / energy);
}

TEST_F(LocalMicrophoneTest, calibratesAsWithTheDevicesOwnMicrophone) {
    enter();
    ASSERT_EQ(calibrate("device", {"--slot", "0"}), kExitOk) << errors();
    ASSERT_EQ(calibrate("local", {"--slot", "1", "--mic", "room"}), kExitOk) << errors();

    const auto stored = device_.stored();
    for (unsigned speaker = 0; speaker < 2; ++speaker) {
        EXPECT_LT(
            difference(stored.at(0).taps.at({speaker, 0}), stored.at(1).taps.at({speaker, 0})), -35)
            << "speaker " << speaker;
    }
    for (int slot = 0; slot < 2; ++slot) {
        const auto alignment = stored.at(slot).alignment;
        EXPECT_NEAR(alignment.at(0).delay() - alignment.at(1).delay(), 1000 * kLater, 0.02);
        EXPECT_NEAR(alignment.at(0).gain() - alignment.at(1).gain(), 20 * std::log10(0.8), 0.1);
    }
}

TEST_F(LocalMicrophoneTest, aDeviceThatOnlyPlaysIsCalibrated) {
    device_.device.set_num_mics(0);
    enter();
    ASSERT_EQ(calibrate("out", {"--mic", "room"}), kExitOk) << errors();
    EXPECT_EQ(device_.callsOf("StartStreaming") + device_.callsOf("StartRecordingStimuli"), 0);
    EXPECT_THAT(device_.stored(), SizeIs(1));
}

TEST_F(LocalMicrophoneTest, itsClockMayRunFast) {
    room_["driftPpm"] = 120;
    room_["latencyMs"] = 10;
    enter();
    ASSERT_EQ(calibrate("out", {"--mic", "room"}), kExitOk) << errors();
    const auto alignment = device_.stored().at(0).alignment;
    EXPECT_NEAR(alignment.at(0).delay() - alignment.at(1).delay(), 1000 * kLater, 0.02);
}

TEST_F(LocalMicrophoneTest, aMissingOneIsToldOfBeforeAnythingSounds) {
    enter();
    expectFailure(kExitUsage, "the microphone \"umik\" cannot be opened", {"--mic", "umik"});
    EXPECT_EQ(device_.callsOf("StartStimuli"), 0);
}

TEST_F(LocalMicrophoneTest, oneThatIsUnpluggedIsToldOf) {
    room_["microphones"][0]["unpluggedAfterMs"] = 2'500;
    enter();
    expectFailure(kExitDevice, "the microphone \"room\" has stopped");
}

TEST_F(LocalMicrophoneTest, aSilentOneIsToldOf) {
    room_.erase("noise");
    room_["microphones"][0]["gainDb"] = -100;
    enter();
    expectFailure(kExitDevice, "The microphone delivers no signal at all.");
}

TEST_F(LocalMicrophoneTest, aStimulusThatIsBrokenOffIsToldOf) {
    enter();
    device_.onStartStimuli = [](auto*, auto* writer) {
        EndpointDouble::send(writer, 30);
        return grpc::Status::OK;
    };
    expectFailure(kExitDevice, "the device stopped playing at 30 %");
}

TEST_F(LocalMicrophoneTest, recordsToAFile) {
    enter();
    ASSERT_EQ(run({"record", path("out.wav"), "--mic", "room", "--duration", "0.5"}), kExitOk)
        << errors();
    EXPECT_EQ(readSoundFile(path("out.wav")).samples.size(), kRate / 2);
    EXPECT_EQ(device_.callsOf("StartStreaming"), 0);
}

TEST_F(LocalMicrophoneTest, ctrlCEndsIt) {
    enter();
    device_.onStartStimuli = [this](auto* context, auto*) {
        stop_.request_stop();
        return EndpointDouble::awaitCancelled(context);
    };
    expectFailure(kExitInterrupted, "");
}

}  // namespace
}  // namespace calibrate
