#include "calibrate/Errors.h"
#include "calibrate/support/CommandFixture.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <cmath>

// The verbs sweep and noise.

namespace calibrate {
namespace {

using dio::endpoint::Progress;
using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

using Context = EndpointDouble::Context;
using Writer = EndpointDouble::Writer<Progress>;

std::uint64_t nowMs() {
    const auto time = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(time).count());
}

class PlayTest : public CommandFixture {
protected:
    /// The device sends these values, and ends with `status`.
    void sendProgress(const std::vector<float>& values,
                      const grpc::Status& status = grpc::Status::OK) {
        device_.onStartStimuli = [=](Context*, Writer* writer) {
            for (const float value : values)
                EndpointDouble::send(writer, value);
            return status;
        };
    }

    /// The user interrupts the command while the device plays.
    void interruptWhilePlaying() {
        device_.onStartStimuli = [this](Context* context, Writer* writer) {
            EndpointDouble::send(writer, 0);
            EndpointDouble::send(writer, -1);
            stop_.request_stop();
            return EndpointDouble::awaitCancelled(context);
        };
    }

    std::vector<int> preparedSpeakers() const {
        const auto prepared = device_.prepared();
        return {prepared.speakers().begin(), prepared.speakers().end()};
    }
};

TEST_F(PlayTest, ASweepGoesThroughEachSpeakerOnce) {
    ASSERT_EQ(run({"sweep"}), kExitOk) << errors();

    EXPECT_THAT(preparedSpeakers(), ElementsAre(0, 1));
    EXPECT_EQ(device_.prepared().stimulus().type(), dio::endpoint::STIMULUS_TYPE_LOG_SWEEP);
    EXPECT_EQ(device_.prepared().stimulus().variant(), 0U);
    EXPECT_FALSE(device_.prepared().stream_recording());
    EXPECT_EQ(device_.startTime(), 0U);
    EXPECT_EQ(output(), "Played a sweep through 2 speakers.\n");
}

TEST_F(PlayTest, SpeakersAreNamedOrNumberedInTheirOrder) {
    ASSERT_EQ(run({"sweep", "--speaker", "front RIGHT", "--speaker", "0", "--variant", "1"}),
              kExitOk)
        << errors();

    EXPECT_THAT(preparedSpeakers(), ElementsAre(1, 0));
    EXPECT_EQ(device_.prepared().stimulus().variant(), 1U);
}

TEST_F(PlayTest, TheStartLiesAheadOfNow) {
    const auto before = nowMs();
    ASSERT_EQ(run({"sweep", "--start-in", "700"}), kExitOk) << errors();

    EXPECT_GE(device_.startTime(), before + 700);
    EXPECT_LE(device_.startTime(), nowMs() + 700);
    EXPECT_THAT(errors(), HasSubstr("waiting for the start"));
}

TEST_F(PlayTest, PercentagesFromMinusOneAndAFinalOneBecomeProgress) {
    ASSERT_EQ(run({"sweep"}), kExitOk);

    EXPECT_EQ(errors(),
              "  0 %  speaker 0 \"Front left\"\n"
              " 50 %  speaker 1 \"Front right\"\n"
              "100 %  done\n");
}

TEST_F(PlayTest, ProgressThatIsNoneHarmsNothing) {
    sendProgress({std::nanf(""), -INFINITY, 5, -1, INFINITY, 1e30F, 99, 1});

    EXPECT_EQ(run({"sweep"}), kExitOk) << errors();
    EXPECT_THAT(errors(), EndsWith("100 %  done\n"));
}

TEST_F(PlayTest, AGainIsSetForTheTimeOfPlaying) {
    device_.setGains({-20, 0, {{0, -9}, {1, -5.99999964}}});
    EndpointDouble::Gains meanwhile;
    device_.onStartStimuli = [&](Context*, Writer* writer) {
        meanwhile = device_.gains();
        EndpointDouble::send(writer, 99);
        return grpc::Status::OK;
    };
    ASSERT_EQ(run({"sweep", "--gain", "-3"}), kExitOk) << errors();

    EXPECT_EQ(meanwhile.stimuli, (std::map<int, double>{{0, -3}, {1, -3}}));
    EXPECT_EQ(device_.gains().stimuli, (std::map<int, double>{{0, -9}, {1, -6}}));
}

TEST_F(PlayTest, OnlyTheSpeakersThatPlayAreTouched) {
    device_.setGains({-20, 0, {{0, -9}}});
    ASSERT_EQ(run({"sweep", "--gain", "-3", "--speaker", "0"}), kExitOk) << errors();

    EXPECT_EQ(device_.gains().stimuli, (std::map<int, double>{{0, -9}}));
}

TEST_F(PlayTest, WithoutAGainASilentSpeakerGetsTheLeastAndOthersKeepTheirs) {
    device_.setGains({-20, 0, {{0, -9}}});
    ASSERT_EQ(run({"sweep"}), kExitOk) << errors();

    EXPECT_EQ(device_.gains().stimuli, (std::map<int, double>{{0, -9}, {1, -12}}));
}

TEST_F(PlayTest, AGainOutsideTheRangeIsRefusedBeforeAnythingIsTouched) {
    EXPECT_EQ(run({"sweep", "--gain", "3"}), kExitUsage);
    EXPECT_THAT(errors(), HasSubstr("--gain 3.0 dB: the device takes -12.0 to 0.0 dB"));
    EXPECT_EQ(device_.callsOf("SetStimuliGain") + device_.callsOf("PrepareStimuli"), 0);
}

TEST_F(PlayTest, GainsAreRestoredWhenTheDeviceRefuses) {
    device_.setGains({-20, 0, {{0, -9}, {1, -9}}});
    device_.fail("StartStimuli",
                 {grpc::StatusCode::RESOURCE_EXHAUSTED, "Stimuli playback already active"});

    EXPECT_EQ(run({"sweep", "--gain", "-3"}), kExitDevice);
    EXPECT_THAT(errors(), EndsWith("StartStimuli: the device says: Stimuli playback already "
                                   "active\n"));
    EXPECT_EQ(device_.gains().stimuli, (std::map<int, double>{{0, -9}, {1, -9}}));
}

TEST_F(PlayTest, CtrlCCancelsTheCallAndRestoresTheGains) {
    device_.setGains({-20, 0, {{0, -9}, {1, -9}}});
    interruptWhilePlaying();

    EXPECT_EQ(run({"sweep", "--gain", "-3"}), kExitInterrupted);
    EXPECT_THAT(errors(), EndsWith("vesk-calibrate: interrupted\n"));
    EXPECT_TRUE(device_.awaitCancelledCalls(1));
    EXPECT_EQ(device_.gains().stimuli, (std::map<int, double>{{0, -9}, {1, -9}}));
}

TEST_F(PlayTest, GainsThatCannotBeRestoredAreToldOf) {
    device_.setGains({-20, 0, {{0, -9}, {1, -9}}});
    device_.fail("SetStimuliGain", {grpc::StatusCode::INTERNAL, "no"}, 2);

    EXPECT_EQ(run({"sweep", "--gain", "-3"}), kExitOk);
    EXPECT_THAT(errors(), HasSubstr("warning: the speakers' stimulus gains could not be restored: "
                                    "SetStimuliGain: the device says: no"));
}

TEST_F(PlayTest, ADeviceThatStopsEarlyIsTold) {
    sendProgress({0, -1, 20, 42, 1});

    EXPECT_EQ(run({"sweep"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("stopped playing at 42 %"));
    EXPECT_EQ(output(), "");
}

TEST_F(PlayTest, ADeviceThatFallsSilentIsGivenUp) {
    device_.onStartStimuli = [](Context* context, Writer* writer) {
        EndpointDouble::send(writer, 0);
        return EndpointDouble::awaitCancelled(context);
    };
    EXPECT_EQ(run({"sweep", "--timeout", "0.5"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("the device fell silent: no progress within 3.5 s"));
    EXPECT_TRUE(device_.awaitCancelledCalls(1));
}

TEST_F(PlayTest, ADeviceThatVanishesIsTold) {
    std::thread end;
    device_.onStartStimuli = [&](Context* context, Writer* writer) {
        EndpointDouble::send(writer, 0);
        end = std::thread([this] { device_.vanish(); });
        return EndpointDouble::awaitCancelled(context);
    };
    EXPECT_EQ(run({"sweep", "--gain", "-3"}), kExitDevice);
    end.join();
    EXPECT_THAT(errors(),
                AllOf(HasSubstr("StartStimuli: the connection to " + device_.address() + " broke"),
                      HasSubstr("warning: the speakers' stimulus gains could not")));
}

TEST_F(PlayTest, ADeviceThatCannotPlayIsTold) {
    device_.lack("StartStimuli");

    EXPECT_EQ(run({"sweep"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("StartStimuli: the device at " + device_.address() +
                                    " does not offer this"));
}

TEST_F(PlayTest, WhatTheDeviceDoesNotHaveIsRefusedBeforeAnythingIsTouched) {
    const auto expectRefused = [&](const std::vector<std::string>& arguments,
                                   const std::string& saying) {
        EXPECT_EQ(run(arguments), kExitUsage);
        EXPECT_THAT(errors(), HasSubstr(saying));
        EXPECT_EQ(device_.callsOf("SetStimuliGain") + device_.callsOf("PrepareStimuli"), 0);
    };
    expectRefused({"sweep", "--speaker", "Centre"}, "2 speakers (0 \"Front left\"");
    expectRefused({"sweep", "--speaker", "0", "--speaker", "front left"}, "named twice");
    expectRefused({"sweep", "--variant", "2"}, "the device has 2 sweep variants");
    expectRefused({"noise", "--variant", "-1"}, "the device has 1 noise variant");
}

TEST_F(PlayTest, ADescriptionThatCannotBeIsToldOf) {
    device_.sampleRate = std::nanf("");
    EXPECT_EQ(run({"sweep"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("a sample rate of nan"));

    device_.device.set_num_speakers(4000000000);
    EXPECT_EQ(run({"noise"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("4000000000 speakers"));
}

TEST_F(PlayTest, NoiseEndsAfterItsDuration) {
    ASSERT_EQ(run({"noise", "--duration", "0.3", "--gain", "-6"}), kExitOk) << errors();

    EXPECT_EQ(device_.prepared().stimulus().type(), dio::endpoint::STIMULUS_TYPE_PINK_NOISE);
    EXPECT_TRUE(device_.awaitCancelledCalls(1));
    EXPECT_EQ(output(), "Played pink noise through 2 speakers.\n");
    EXPECT_THAT(errors(), EndsWith("100 %  done\n"));
}

TEST_F(PlayTest, NoiseEndsInTimeOnADeviceThatSendsNoProgress) {
    device_.onStartStimuli = [](Context* context, Writer* writer) {
        EndpointDouble::send(writer, 0);
        return EndpointDouble::awaitCancelled(context);
    };
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(run({"noise", "--duration", "0.2"}), kExitOk) << errors();
    // Not the 8 s after which a device is given up.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(6));
}

TEST_F(PlayTest, ADeviceThatWasInterruptedIsGivenTheTimeToBecomeQuiet) {
    interruptWhilePlaying();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(run({"sweep"}), kExitInterrupted);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
}

TEST_F(PlayTest, NoiseGoesOnUntilCtrlC) {
    interruptWhilePlaying();

    EXPECT_EQ(run({"noise"}), kExitInterrupted);
    EXPECT_TRUE(device_.awaitCancelledCalls(1));
}

TEST_F(PlayTest, NoiseTellsWhichSpeakerIsHeardInEachPass) {
    sendProgress({0, 49, 50, 99, 101, 151}, {grpc::StatusCode::INTERNAL, "end"});

    EXPECT_EQ(run({"noise"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("0 s  speaker 0 \"Front left\"\n"
                                    "0 s  speaker 1 \"Front right\"\n"
                                    "0 s  speaker 0 \"Front left\"\n"
                                    "0 s  speaker 1 \"Front right\"\n"));
}

TEST_F(PlayTest, ReportsAsJson) {
    ASSERT_EQ(run({"sweep", "--speaker", "1", "--json"}), kExitOk) << errors();

    EXPECT_EQ(json::parse(output()),
              (json{{"type", "log_sweep"},
                    {"variant", 0},
                    {"speakers", {{{"speaker", 1}, {"name", "Front right"}}}}}));
}

TEST_F(PlayTest, SaysNothingWhenQuiet) {
    EXPECT_EQ(run({"sweep", "--quiet"}), kExitOk);
    EXPECT_EQ(output() + errors(), "");
}

}  // namespace
}  // namespace calibrate
