#include "calibrate/Errors.h"
#include "calibrate/support/CommandFixture.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace calibrate {
namespace {

using nlohmann::json;
using testing::HasSubstr;

using ModeTest = CommandFixture;

TEST_F(ModeTest, ShowsTheStages) {
    device_.setMode(true, false, true);
    ASSERT_EQ(run({"mode"}), kExitOk) << errors();

    EXPECT_EQ(output(), "Correction      on\nGain and delay  off\n");
    EXPECT_EQ(device_.callsOf("SetOperationMode"), 0);
}

TEST_F(ModeTest, SwitchesWhatIsGivenAndLeavesTheRest) {
    device_.setMode(true, false, true);
    ASSERT_EQ(run({"mode", "--correction", "off", "--json"}), kExitOk) << errors();

    EXPECT_EQ(json::parse(output()),
              (json{{"filtering", false}, {"gain", true}, {"delay", false}}));
    ASSERT_EQ(run({"mode", "--gain-delay", "on", "--quiet"}), kExitOk) << errors();
    EXPECT_TRUE(device_.mode().gain() && device_.mode().delay());
    EXPECT_FALSE(device_.mode().filtering());
    EXPECT_EQ(output(), "");
}

TEST_F(ModeTest, ADeviceThatDoesNotSwitchIsTold) {
    device_.setMode(true, true, false);
    device_.keepsCorrectionOff = true;

    EXPECT_EQ(run({"mode", "--correction", "on"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("did not switch to correction on, gain and delay on: it is at "
                                    "correction off, gain and delay on"));
}

TEST_F(ModeTest, ADeviceWithoutModesIsTold) {
    device_.lack("GetOperationMode");

    EXPECT_EQ(run({"mode"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("GetOperationMode"));
}

}  // namespace
}  // namespace calibrate
