#include "calibrate/Activate.h"
#include "calibrate/Errors.h"
#include "calibrate/support/CommandFixture.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace calibrate {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;

class ActivateTest : public CommandFixture {
protected:
    ActivateTest() {
        device_.store(1, "Day", 1);
        device_.store(2, "Night", 2);
    }
};

TEST_F(ActivateTest, PutsASlotToUse) {
    EXPECT_EQ(run({"activate", "2"}), kExitOk) << errors();

    EXPECT_EQ(device_.activeSlot(), 2);
    EXPECT_THAT(output(), HasSubstr("Slot 2 \"Night\" is active."));
    EXPECT_EQ(device_.callsOf("SetOperationMode"), 0);
}

TEST_F(ActivateTest, SwitchesCorrectionOnAndLeavesGainAndDelay) {
    device_.setMode(true, false, false);
    EXPECT_EQ(run({"activate", "1"}), kExitOk);

    EXPECT_TRUE(device_.mode().filtering());
    EXPECT_TRUE(device_.mode().gain());
    EXPECT_FALSE(device_.mode().delay());
}

TEST_F(ActivateTest, IsContentWithADeviceThatHasNoModes) {
    device_.lack("GetOperationMode");

    EXPECT_EQ(run({"activate", "1"}), kExitOk);
    EXPECT_EQ(device_.activeSlot(), 1);
}

TEST_F(ActivateTest, AnEmptySlotIsRefusedAndTheActiveOneStays) {
    device_.setActive(1);

    EXPECT_EQ(run({"activate", "3"}), kExitDevice);
    EXPECT_THAT(errors(), AllOf(HasSubstr("slot 3"), HasSubstr("it is empty")));
    EXPECT_EQ(device_.activeSlot(), 1);
}

TEST_F(ActivateTest, ASlotThatTheDeviceDoesNotHaveIsRefused) {
    for (const char* slot : {"8", "-1"}) {
        EXPECT_EQ(run({"activate", slot}), kExitUsage);
        EXPECT_THAT(errors(), HasSubstr("slots 0 to 7"));
    }
    EXPECT_EQ(device_.callsOf("SetActiveSlot"), 0);
}

TEST_F(ActivateTest, ADeviceThatKeepsItsCorrectionOffIsTold) {
    device_.setMode(true, true, false);
    device_.keepsCorrectionOff = true;

    EXPECT_EQ(run({"activate", "1"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("did not switch its correction on"));
}

TEST_F(ActivateTest, OffSwitchesCorrectionOffAndKeepsTheSlot) {
    device_.setActive(2);
    device_.setMode(true, false, true);

    EXPECT_EQ(run({"activate", "off"}), kExitOk);
    EXPECT_FALSE(device_.mode().filtering());
    EXPECT_TRUE(device_.mode().gain());
    EXPECT_FALSE(device_.mode().delay());
    EXPECT_EQ(device_.activeSlot(), 2);
    EXPECT_EQ(device_.callsOf("SetActiveSlot"), 0);
}

TEST_F(ActivateTest, OffNeedsADeviceThatHasModes) {
    device_.lack("GetOperationMode");

    EXPECT_EQ(run({"activate", "off"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("GetOperationMode"));
}

TEST_F(ActivateTest, ReportsAsJson) {
    EXPECT_EQ(run({"activate", "1", "--json"}), kExitOk);
    EXPECT_EQ(json::parse(output()), (json{{"active_slot", 1}}));
}

TEST_F(ActivateTest, SaysNothingWhenQuiet) {
    EXPECT_EQ(run({"activate", "1", "--quiet"}), kExitOk);
    EXPECT_EQ(output() + errors(), "");
}

}  // namespace
}  // namespace calibrate
