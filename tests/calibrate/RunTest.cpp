#include "calibrate/Errors.h"
#include "calibrate/support/CommandFixture.h"
#include "calibrate/support/FullDisk.h"
#include "calibrate/support/SimulatedRoom.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <fstream>
#include <sstream>

namespace calibrate {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

namespace fs = std::filesystem;

class RunTest : public CommandFixture {
protected:
    RunTest() : room_(device_) {
        device_.setMode(false, false, false);
        device_.setGains({-20, 0, {{0, -9}, {1, -7}}});
    }

    ~RunTest() override { device_.vanish(); }

    std::string folder() const { return path("out"); }

    int calibrate(std::vector<std::string> arguments = {}) {
        // A device takes a moment to notice that the client before has gone.
        device_.awaitCancelledCalls(device_.callsOf("Notifications"));
        arguments.insert(arguments.begin(), {"run", "-o", folder()});
        return run(arguments);
    }

    json report() const {
        std::ifstream file(fs::path(folder()) / "report.json");
        return json::parse(file);
    }

    /// A filter in slot 1 that is in use, so that there is something to come back to.
    void useAnotherFilter() {
        device_.store(1, "Before", 1'700'000'000'000);
        device_.setActive(1);
        device_.setMode(true, true, true);
    }

    void expectAsBefore(int activeSlot, bool filtering) const {
        EXPECT_EQ(device_.activeSlot(), activeSlot);
        EXPECT_EQ(device_.mode().filtering(), filtering);
        EXPECT_EQ(device_.gains().stimuli, (std::map<int, double>{{0, -9}, {1, -7}}));
        EXPECT_EQ(device_.gains().speaker, -20);
        EXPECT_EQ(device_.gains().microphone, 0);
    }

    /// A failure of the room or the device that nothing is left of.
    void expectFailure(const std::string& words, std::vector<std::string> arguments = {}) {
        EXPECT_EQ(calibrate(std::move(arguments)), kExitDevice);
        EXPECT_THAT(errors(), HasSubstr(words));
        EXPECT_THAT(device_.stored(), SizeIs(0));
        expectAsBefore(-1, false);
    }

    SimulatedRoom room_;
};

// ---- What it does -------------------------------------------------------------------------------

TEST_F(RunTest, StoresAndActivatesAFilterThatCorrects) {
    ASSERT_EQ(calibrate({"--name", "Evening"}), kExitOk) << errors();

    ASSERT_EQ(device_.stored().count(0), 1U);
    const auto design = device_.stored().at(0);
    EXPECT_EQ(design.info.name(), "Evening");
    EXPECT_THAT(design.taps, SizeIs(4));
    EXPECT_LE(design.taps.at({0, 0}).size(), 1000U);
    EXPECT_LE(design.sections.at({0, 0}).size(), 30U);
    EXPECT_EQ(device_.activeSlot(), 0);
    EXPECT_TRUE(device_.mode().filtering());
    EXPECT_TRUE(device_.mode().gain());
    EXPECT_EQ(device_.gains().stimuli, (std::map<int, double>{{0, -9}, {1, -7}}));
    EXPECT_THAT(output(), HasSubstr("Slot 0 is active. Report: " + folder()));
}

TEST_F(RunTest, TheResultIsAsPredicted) {
    ASSERT_EQ(calibrate(), kExitOk) << errors();

    for (const auto& speaker : report().at("speakers")) {
        const auto& verification = speaker.at("verification");
        EXPECT_EQ(verification.at("verdict"), "good") << verification.dump(1);
        EXPECT_LT(verification.at("largest_difference_from_prediction_db").get<double>(), 0.5);
    }
}

TEST_F(RunTest, TheEarlierAndLouderSpeakerIsAlignedWithTheOther) {
    ASSERT_EQ(calibrate(), kExitOk) << errors();

    const auto alignment = device_.stored().at(0).alignment;
    EXPECT_NEAR(alignment.at(0).delay(), 1.0, 0.05);
    EXPECT_NEAR(alignment.at(1).delay(), 0, 0.05);
    EXPECT_NEAR(alignment.at(0).gain() - alignment.at(1).gain(), 20 * std::log10(0.25 / 0.3), 0.7);
}

TEST_F(RunTest, MeasuresSeveralPositions) {
    ASSERT_EQ(calibrate({"--positions", "2", "--yes", "--no-verify"}), kExitOk) << errors();

    EXPECT_EQ(device_.callsOf("StartRecordingStimuli"), 2);
    EXPECT_THAT(report().at("speakers").at(0).at("positions"), SizeIs(2));
}

TEST_F(RunTest, AsksForThePositionsOnATerminal) {
    answerWith("y\ny\n");
    ASSERT_EQ(calibrate({"--positions", "2", "--no-verify"}), kExitOk) << errors();

    EXPECT_THAT(errors(), AllOf(HasSubstr("where you listen, position 1 of 2. Measure now?"),
                                HasSubstr("Put the microphone at position 2 of 2. Measure now?")));
}

TEST_F(RunTest, ANoAtAPositionKeepsWhatWasMeasured) {
    answerWith("y\nn\n");
    EXPECT_EQ(calibrate({"--positions", "2"}), kExitInterrupted);
    EXPECT_THAT(errors(), AllOf(HasSubstr("stopped at the microphone's position"),
                                HasSubstr("What was measured is in ")));
    EXPECT_THAT(report().at("speakers").at(0).at("positions"), SizeIs(1));
}

TEST_F(RunTest, ANoBeforeTheVerificationLeavesTheFilterInUse) {
    answerWith("y\ny\nn\n");
    EXPECT_EQ(calibrate({"--positions", "2"}), kExitOk) << errors();
    EXPECT_THAT(errors(),
                HasSubstr("warning: The result is not verified: the microphone was not put "
                          "back."));
    EXPECT_THAT(report().at("warnings").dump(), HasSubstr("The result is not verified"));
    EXPECT_EQ(device_.activeSlot(), 0);
    EXPECT_TRUE(device_.mode().filtering());
}

TEST_F(RunTest, PositionsNeedSomebodyToAnswer) {
    EXPECT_EQ(calibrate({"--positions", "2"}), kExitUsage);
    EXPECT_THAT(errors(), HasSubstr("Nobody can answer here: add --yes"));
    EXPECT_EQ(device_.callsOf("StartRecordingStimuli"), 0);
}

TEST_F(RunTest, TellsProgramsEachEventOnALine) {
    ASSERT_EQ(calibrate({"--json"}), kExitOk) << errors();

    std::vector<std::string> events;
    std::istringstream lines(output());
    for (std::string line; std::getline(lines, line);)
        events.push_back(json::parse(line).at("event"));
    for (const auto* event : {"progress", "noise", "measured", "stored", "verified"})
        EXPECT_THAT(events, Contains(event));
    EXPECT_EQ(events.back(), "done");
    EXPECT_EQ(errors(), "");
}

TEST_F(RunTest, QuietMeansQuiet) {
    ASSERT_EQ(calibrate({"--quiet"}), kExitOk);
    EXPECT_EQ(output(), "");
    EXPECT_EQ(errors(), "");
}

TEST_F(RunTest, RaisesTheGainOfAFaintStimulus) {
    room_.microphoneGain = 0.15;
    ASSERT_EQ(calibrate({"--no-verify"}), kExitOk) << errors();

    EXPECT_THAT(output(), HasSubstr("stimuli are played at 0.0 dB."));
    EXPECT_EQ(device_.callsOf("StartRecordingStimuli"), 2);
}

TEST_F(RunTest, LowersTheGainOfAStimulusThatClips) {
    room_.microphoneGain = 0.15;
    room_.onRecorded = [this](double) {
        // Somebody has turned the microphone up when the gain was found.
        if (device_.gains().stimuli.at(0) > -1)
            room_.microphoneGain = 1.9;
    };
    ASSERT_EQ(calibrate({"--no-verify"}), kExitOk) << errors();

    EXPECT_THAT(output(), HasSubstr("stimuli are played at -6.0 dB."));
}

TEST_F(RunTest, ABassManagedDeviceGetsItsCellsForEachVariant) {
    device_.setSpeakers({"Left", "Right", "Subwoofer"});
    device_.speakers[2].set_kind(4);
    device_.setGains({-20, 0, {{0, -9}, {1, -9}, {2, -9}}});
    ASSERT_EQ(calibrate({"--no-verify", "--crossover", "100"}), kExitOk) << errors();

    const auto design = device_.stored().at(0);
    EXPECT_THAT(design.alignment, SizeIs(0));
    EXPECT_EQ(design.bassFilters.count({1, 0, 0, 0}), 1U);
    EXPECT_EQ(design.bassFilters.at({1, 0, 0, 1}).biquads_size(), 2);
    EXPECT_EQ(design.bassDelays.count({4, 0, 0, 0}), 1U);
    EXPECT_EQ(design.bassDelays.count({4, 0, 0, 1}), 1U);
}

TEST_F(RunTest, ACommandCanPlayTheVerification) {
    room_.filtersStimuli = false;
    room_.musicFile = path("music.wav");
    const std::string temporary = path("temporary.wav");
    ASSERT_EQ(calibrate({"--play", "cp $FILE " + temporary + " && mv " + temporary + " " +
                                       path("music.wav")}),
              kExitOk)
        << errors();

    for (const auto& speaker : report().at("speakers"))
        EXPECT_EQ(speaker.at("verification").at("verdict"), "good");
    EXPECT_EQ(device_.callsOf("StartStreaming"), 2);
}

TEST_F(RunTest, ACommandThatFailsIsToldOf) {
    room_.musicFile = path("music.wav");
    EXPECT_EQ(calibrate({"--play", "exit 3"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("--play: the command \"exit 3\" failed"));
    EXPECT_THAT(device_.stored(), SizeIs(0));
    expectAsBefore(-1, false);
}

// ---- Slots --------------------------------------------------------------------------------------

TEST_F(RunTest, AUsedSlotIsNotReplacedUnasked) {
    useAnotherFilter();
    EXPECT_EQ(calibrate({"--slot", "1"}), kExitUsage);
    EXPECT_THAT(errors(), HasSubstr("Slot 1 holds \"Before\". Replace it?"));
    EXPECT_EQ(device_.callsOf("StartRecordingStimuli"), 0);

    EXPECT_EQ(calibrate({"--slot", "1", "--force", "--no-verify"}), kExitOk) << errors();
    EXPECT_THAT(device_.stored().at(1).info.name(), HasSubstr("Room "));
}

TEST_F(RunTest, NoEmptySlotIsToldOf) {
    for (int slot = 0; slot < 8; ++slot)
        device_.store(slot, "Used", 1);
    EXPECT_EQ(calibrate(), kExitUsage);
    EXPECT_THAT(errors(),
                HasSubstr("all 8 slots of the device are in use: choose one with --slot"));
}

// ---- Bad input ----------------------------------------------------------------------------------

TEST_F(RunTest, AMicrophoneThatIsSilentIsToldOf) {
    room_.noise = 0;
    expectFailure("The microphone delivers no signal at all. Check that it is plugged in");
    EXPECT_THAT(errors(), Not(HasSubstr("If they do play")));
    EXPECT_EQ(device_.callsOf("StartRecordingStimuli"), 1);
}

TEST_F(RunTest, AMicrophoneThatIsUnpluggedIsToldOf) {
    room_.recordedFor = 0.1;
    expectFailure(
        "the device ended the stream of its microphone: check that the microphone is "
        "plugged in");
}

TEST_F(RunTest, AMicrophoneThatHearsNoLoudspeakerIsToldOf) {
    room_.dead = {0, 1};
    expectFailure("Nothing arrived from \"Front left\"");
    EXPECT_THAT(errors(), HasSubstr("Nothing arrived from \"Front right\""));
    EXPECT_THAT(errors(), HasSubstr("If they do play, the microphone that listens is another one"));
}

TEST_F(RunTest, AMicrophoneThatTheDeviceLacksIsToldOf) {
    EXPECT_EQ(calibrate({"--mic", "3"}), kExitUsage);
    EXPECT_THAT(errors(), HasSubstr("microphone 3 does not exist"));
    EXPECT_EQ(device_.callsOf("StartStreaming"), 0);
}

TEST_F(RunTest, ClippingAtTheLeastGainIsToldOf) {
    room_.microphoneGain = 60;
    expectFailure("are clipped. Lower the volume or the microphone's gain");
}

TEST_F(RunTest, ASpeakerThatPlaysNothingIsToldByName) {
    room_.dead = {0};
    expectFailure(
        "Nothing arrived from \"Front left\". Check that this loudspeaker is connected and plays");
    EXPECT_THAT(errors(), Not(HasSubstr("Nothing arrived from \"Front right\"")));
    EXPECT_EQ(device_.callsOf("StartRecordingStimuli"), 2) << "it is tried once more";
    EXPECT_TRUE(fs::exists(fs::path(folder()) / "report.html"));
}

TEST_F(RunTest, ASweepThatIsCutShortIsToldOf) {
    room_.heardFor = 1.0;
    expectFailure("before the sweep does");
}

TEST_F(RunTest, ARecordingThatEndsEarlyIsToldOf) {
    room_.onRecorded = [this](double) {
        if (device_.callsOf("StartRecordingStimuli") > 0)
            room_.recordedFor = 2;
    };
    expectFailure(
        "the recording ended after 2.0 s of 3.6 s: the device's player or its microphone "
        "was stopped");
}

TEST_F(RunTest, AMicrophoneAtAnotherRateIsToldOf) {
    room_.recordingRate = 44'100;
    expectFailure("The recording");
    EXPECT_THAT(errors(), testing::AnyOf(HasSubstr("The recording's speed is wrong"),
                                         HasSubstr("The recording of \"Front left\" jumps by")));
}

TEST_F(RunTest, ALoudRoomIsToldOf) {
    room_.noise = 0.05;
    EXPECT_EQ(calibrate({"--no-verify"}), kExitOk) << errors();

    const auto all = errors();
    const auto first = all.find("warning: The room is loud");
    ASSERT_NE(first, std::string::npos);
    EXPECT_EQ(all.find("warning: The room is loud", first + 1), std::string::npos) << "said twice";
}

TEST_F(RunTest, AMicrophoneThatIsOverdrivenByTheRoomIsToldOf) {
    room_.noise = 0.5;
    expectFailure("the microphone is overdriven although nothing is played");
    EXPECT_EQ(device_.callsOf("StartRecordingStimuli"), 0);
}

TEST_F(RunTest, ASecondClientIsToldOf) {
    device_.onNotifications = [](EndpointDouble::Context*) {
        return grpc::Status(grpc::StatusCode::RESOURCE_EXHAUSTED, "client already connected");
    };
    expectFailure("another calibration client works with this device; end it first");
    EXPECT_EQ(device_.callsOf("StartStreaming"), 0);
}

TEST_F(RunTest, ADeviceThatVanishesIsToldOf) {
    std::thread end;
    room_.onRecorded = [&](double recorded) {
        if (recorded > 0.5 && device_.callsOf("StartRecordingStimuli") > 0 && !end.joinable())
            end = std::thread([this] { device_.vanish(); });
    };
    EXPECT_EQ(calibrate(), kExitDevice);
    end.join();
    EXPECT_THAT(errors(), AllOf(HasSubstr("the connection to"), HasSubstr("broke"),
                                HasSubstr("could not be restored")));
}

TEST_F(RunTest, ADeviceThatHoldsNoFilterIsToldOf) {
    device_.variants[1].set_max_taps(0);
    expectFailure("the device cannot hold a filter for each speaker: variant 1 has 0 taps");
    EXPECT_EQ(device_.callsOf("StartStreaming"), 0);
}

TEST_F(RunTest, ADeviceWithoutSlotsIsToldOf) {
    device_.device.set_num_slots(0);
    expectFailure("the device has no slot for a filter");
    EXPECT_EQ(device_.callsOf("StartStreaming"), 0);
}

TEST_F(RunTest, ADeviceWithoutSpeakersIsToldOf) {
    device_.setSpeakers({});
    expectFailure("the device has no speakers");
    EXPECT_EQ(device_.callsOf("StartStreaming"), 0);
}

TEST_F(RunTest, AFilterWithoutSectionsIsStillDesigned) {
    for (auto& variant : device_.variants)
        variant.set_max_biquads(0);
    ASSERT_EQ(calibrate({"--no-verify"}), kExitOk) << errors();
    EXPECT_THAT(device_.stored().at(0).sections.at({0, 0}), SizeIs(0));
}

TEST_F(RunTest, ADeviceWithoutASweepIsToldOf) {
    device_.sweeps[0].set_length(10);
    expectFailure("the device plays no sweep with which a room can be measured");
}

TEST_F(RunTest, RubbishInFilesIsToldBeforeAnythingSounds) {
    writeText(path("rubbish.txt"), "20 0\n30 loud\n");
    EXPECT_EQ(calibrate({"--target", path("rubbish.txt")}), kExitUsage);
    EXPECT_THAT(errors(), HasSubstr("rubbish.txt"));
    EXPECT_EQ(calibrate({"--microphone", path("rubbish.txt")}), kExitUsage);
    EXPECT_EQ(calibrate({"--range", "20"}), kExitUsage);
    EXPECT_EQ(calibrate({"--gain", "6"}), kExitUsage);
    EXPECT_EQ(calibrate({"--slot", "8"}), kExitUsage);
    EXPECT_EQ(device_.callsOf("StartStreaming"), 0);
    expectAsBefore(-1, false);
}

TEST_F(RunTest, AFolderThatHoldsFilesIsRefused) {
    fs::create_directory(folder());
    writeText(folder() + "/precious.txt", "text");
    EXPECT_EQ(calibrate(), kExitUsage);
    EXPECT_THAT(errors(), HasSubstr("holds files already"));
    EXPECT_EQ(device_.calls(), std::vector<std::string>());
}

TEST_F(RunTest, AFullDiskLeavesTheDeviceAsItWas) {
    useAnotherFilter();
    {
        const FullDisk disk(20'000);
        EXPECT_EQ(calibrate(), kExitDevice);
    }
    EXPECT_THAT(errors(), HasSubstr("cannot be written"));
    EXPECT_EQ(device_.stored().count(0), 0U);
    EXPECT_EQ(device_.stored().count(1), 1U);
    expectAsBefore(1, true);
    EXPECT_FALSE(fs::exists(folder()));
}

TEST_F(RunTest, ADeviceThatVanishesDuringTheTransferIsToldOf) {
    device_.hold("SetCellFIIR");
    std::thread end([this] {
        device_.awaitHeld();
        device_.vanish();
    });
    EXPECT_EQ(calibrate(), kExitDevice);
    device_.release();
    end.join();
    EXPECT_THAT(errors(), AllOf(HasSubstr("nothing was stored"),
                                HasSubstr("the device could not be left as it was")));
    EXPECT_THAT(device_.stored(), SizeIs(0));
}

TEST_F(RunTest, ATransferThatFailsLeavesTheDeviceAsItWas) {
    useAnotherFilter();
    device_.fail("SetCellFIIR", {grpc::StatusCode::INVALID_ARGUMENT, "too much"}, 2);
    EXPECT_EQ(calibrate(), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("too much; nothing was stored"));
    expectAsBefore(1, true);
}

// ---- Verification -------------------------------------------------------------------------------

TEST_F(RunTest, ASpeakerThatDiffersFromItsPredictionIsNamed) {
    useAnotherFilter();
    room_.onRecorded = [this](double) {
        if (device_.stored().size() > 1)
            room_.changed = {1};
    };
    EXPECT_EQ(calibrate(), kExitDevice);
    EXPECT_THAT(errors(), AllOf(HasSubstr("\"Front right\" differs from its prediction by"),
                                Not(HasSubstr("\"Front left\" differs")),
                                HasSubstr("The filter stays in slot 0, not in use")));
    EXPECT_EQ(device_.stored().count(0), 1U);
    expectAsBefore(1, true);
    EXPECT_TRUE(fs::exists(fs::path(folder()) / "report.html"));
}

TEST_F(RunTest, ADeviceThatKeepsItsStimuliUnfilteredStaysUnverified) {
    room_.filtersStimuli = false;
    ASSERT_EQ(calibrate(), kExitOk) << errors();

    EXPECT_THAT(errors(), HasSubstr("The result is not verified"));
    EXPECT_EQ(device_.activeSlot(), 0);
    EXPECT_TRUE(device_.mode().filtering());
}

// ---- Ctrl-C -------------------------------------------------------------------------------------

TEST_F(RunTest, InterruptedWhileMeasuringItLeavesTheDeviceAsItWas) {
    useAnotherFilter();
    room_.onRecorded = [this](double recorded) {
        if (recorded > 0.5 && device_.callsOf("StartRecordingStimuli") > 0)
            stop_.request_stop();
    };
    EXPECT_EQ(calibrate(), kExitInterrupted);
    EXPECT_EQ(device_.stored().count(0), 0U);
    expectAsBefore(1, true);
    EXPECT_FALSE(fs::exists(folder()));
}

TEST_F(RunTest, InterruptedWhileVerifyingItLeavesTheDeviceAsItWas) {
    room_.onRecorded = [this](double recorded) {
        if (recorded > 2.5 && !device_.stored().empty())
            stop_.request_stop();
    };
    EXPECT_EQ(calibrate(), kExitInterrupted);
    EXPECT_THAT(device_.stored(), SizeIs(0));
    expectAsBefore(-1, false);
}

TEST_F(RunTest, InterruptedWhileStoringNoHalfOfAFilterStays) {
    useAnotherFilter();
    device_.hold("EndFilterTransfer");
    std::thread user([this] {
        device_.awaitHeld();
        stop_.request_stop();
        device_.release();
    });
    EXPECT_EQ(calibrate(), kExitInterrupted);
    user.join();
    EXPECT_EQ(device_.stored().count(0), 0U);
    expectAsBefore(1, true);
}

}  // namespace
}  // namespace calibrate
