// A whole calibration: the program, a device and a room, each a process or a sound card of its own.

#include "roomsim/AlsaPcm.h"
#include "support/ScratchDirectory.h"
#include "system/DeviceTest.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <fstream>

namespace {

using nlohmann::json;
using testing::AllOf;
using testing::Each;
using testing::HasSubstr;
using testing::SizeIs;

class CalibrationTest : public DeviceTest {
protected:
    static constexpr int kSlot = 2;

    void startInRoom(std::vector<std::string> arguments) {
        json room = json::parse(std::ifstream(VESK_EXAMPLE_ROOM), nullptr, true, true);
        room["pace"] = 4;
        files_.emplace(room);
        room_.emplace(*files_);
        options().arguments = std::move(arguments);
        start();
    }

    /// Calibrates into the slot, with `more` arguments.
    ProcessResult run(const std::vector<std::string>& more) {
        std::vector<std::string> arguments{
            "run", "--slot", std::to_string(kSlot), "--name", "Calibrated", "-o", folder().string(),
        };
        arguments.insert(arguments.end(), more.begin(), more.end());
        return calibrate(arguments);
    }

    /// Plays a sound file like music, which goes through the filter.
    std::vector<std::string> player() {
        const std::string tree =
            std::string(VESK_TREE) + " --socket " + device().controlSocket().string();
        return {"--play", tree + R"( invoke player/playFile "{\"path\": \"$FILE\"}")"};
    }

    std::vector<json> reportedSpeakers() const {
        return json::parse(readFile(folder() / "report.json")).at("speakers");
    }

    void expectSlotIsActive() {
        EXPECT_EQ(tree().value(kSlotsSettings)["activeSlot"], kSlot);
        EXPECT_EQ(tree().value(kSlotsSettings)["filteringEnabled"], true);
        EXPECT_TRUE(eventually([this] { return image()->bypass == 0; }));
        EXPECT_THAT(calibrate({"slots"}).output, HasSubstr("active  Calibrated"));
    }

private:
    std::filesystem::path folder() const { return scratch_.path() / "calibration"; }

    const ScratchDirectory scratch_;
    std::optional<RoomFiles> files_;
    std::optional<AlsaRoom> room_;
};

MATCHER(IsAsPredictedAndBetter, "") {
    const json& deviation = arg.at("deviation");
    *result_listener << deviation;
    const double after = deviation.at("after_db");
    return std::abs(after - deviation.at("predicted_db").get<double>()) < 0.5 &&
           after < deviation.at("before_db").get<double>() / 2;
}

}  // namespace

TEST_F(CalibrationTest, theDevicesMicrophoneHearsThePredictedRoom) {
    startInRoom({"--playback", "room", "--microphone", "room"});
    const ProcessResult result = run(player());
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_THAT(reportedSpeakers(), AllOf(SizeIs(2), Each(IsAsPredictedAndBetter())));
    expectSlotIsActive();
}

TEST_F(CalibrationTest, aMicrophoneOfThisMachineHearsThePredictedRoom) {
    startInRoom({"--playback", "room"});
    auto arguments = player();
    arguments.insert(arguments.end(), {"--mic", "room"});
    const ProcessResult result = run(arguments);
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_THAT(reportedSpeakers(), AllOf(SizeIs(2), Each(IsAsPredictedAndBetter())));
    expectSlotIsActive();
}

TEST_F(CalibrationTest, aDeviceThatPlaysStimuliUnfilteredIsNotVerified) {
    startInRoom({"--playback", "room", "--microphone", "room"});
    const ProcessResult result = run({});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_THAT(result.errors, HasSubstr("The result is not verified: this device keeps its "
                                         "correction off while it plays stimuli."));
    for (const json& speaker : reportedSpeakers())
        EXPECT_TRUE(speaker.at("deviation").at("after_db").is_null());
    expectSlotIsActive();
}

TEST_F(CalibrationTest, aPlayerThatPlaysNothingLeavesTheFilterStoredAndOff) {
    startInRoom({"--playback", "room", "--microphone", "room"});
    const ProcessResult result = run({"--play", "true"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.errors, HasSubstr("The filter stays in slot 2, not in use"));
    EXPECT_THAT(result.errors, HasSubstr("Nothing arrived from \"Left\""));
    EXPECT_EQ(tree().value(kSlotsSettings)["filteringEnabled"], false);
    EXPECT_TRUE(awaitBypass());
}
