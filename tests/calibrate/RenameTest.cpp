#include "calibrate/Errors.h"
#include "calibrate/Rename.h"
#include "calibrate/support/CommandFixture.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace calibrate {
namespace {

using nlohmann::json;
using testing::HasSubstr;

class RenameTest : public CommandFixture {
protected:
    RenameTest() { device_.store(2, "Night", 7); }

    dio::endpoint::SlotInfo slot() const { return device_.stored().at(2).info; }
};

TEST_F(RenameTest, ChangesTheNameAndKeepsTheRest) {
    EXPECT_EQ(run({"rename", "2", "--name", "Küche, abends"}), kExitOk) << errors();

    EXPECT_EQ(slot().name(), "Küche, abends");
    EXPECT_EQ(slot().filter_type_name(), "FIR");
    EXPECT_EQ(slot().description(), "before");
    EXPECT_EQ(slot().creation_time(), 7);
    EXPECT_THAT(output(), HasSubstr("\"Küche, abends\""));
}

TEST_F(RenameTest, ChangesAnyOfTheTexts) {
    EXPECT_EQ(run({"rename", "2", "--description", "", "--type", "Mixed"}), kExitOk);

    EXPECT_EQ(slot().name(), "Night");
    EXPECT_EQ(slot().filter_type_name(), "Mixed");
    EXPECT_EQ(slot().description(), "");
}

TEST_F(RenameTest, AnEmptySlotIsRefused) {
    EXPECT_EQ(run({"rename", "3", "--name", "New"}), kExitDevice);

    EXPECT_THAT(errors(), HasSubstr("slot 3 is empty"));
    EXPECT_EQ(device_.stored().count(3), 0U);
}

TEST_F(RenameTest, ASlotThatTheDeviceDoesNotHaveIsRefused) {
    EXPECT_EQ(run({"rename", "8", "--name", "New"}), kExitUsage);
    EXPECT_THAT(errors(), HasSubstr("slots 0 to 7"));
}

TEST_F(RenameTest, TheDevicesRefusalIsShown) {
    device_.fail("UpdateSlotInfo", {grpc::StatusCode::INVALID_ARGUMENT, "map::at"});

    EXPECT_EQ(run({"rename", "2", "--name", "New"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("UpdateSlotInfo: the device says: map::at"));
}

TEST_F(RenameTest, ReportsAsJson) {
    EXPECT_EQ(run({"--json", "rename", "2", "--name", "New"}), kExitOk);
    EXPECT_EQ(json::parse(output()),
              (json{{"slot", 2}, {"name", "New"}, {"type", "FIR"}, {"description", "before"}}));
}

}  // namespace
}  // namespace calibrate
