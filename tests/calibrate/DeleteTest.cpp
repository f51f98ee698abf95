#include "calibrate/Delete.h"
#include "calibrate/Errors.h"
#include "calibrate/support/CommandFixture.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace calibrate {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;

class DeleteTest : public CommandFixture {
protected:
    DeleteTest() { device_.store(2, "Night", 7); }

    bool isStored() const { return device_.stored().count(2) > 0; }
};

TEST_F(DeleteTest, RemovesTheFilterOfASlot) {
    EXPECT_EQ(run({"delete", "2", "--yes"}), kExitOk) << errors();

    EXPECT_FALSE(isStored());
    EXPECT_THAT(output(), HasSubstr("Slot 2 is empty."));
}

TEST_F(DeleteTest, AsksOnATerminal) {
    device_.setActive(2);
    answerWith("y\n");

    EXPECT_EQ(run({"delete", "2"}), kExitOk);
    EXPECT_FALSE(isStored());
    EXPECT_THAT(errors(), HasSubstr("Delete slot 2 \"Night\", which is active? [y/N]"));
}

TEST_F(DeleteTest, AnyOtherAnswerIsNo) {
    for (const char* answer : {"\n", "n\n", "yess\n"}) {
        answerWith(answer);
        EXPECT_EQ(run({"delete", "2"}), kExitOk);
        EXPECT_TRUE(isStored());
        EXPECT_THAT(output(), HasSubstr("Nothing was deleted."));
    }
}

TEST_F(DeleteTest, NeedsYesWhereNobodyCanAnswer) {
    EXPECT_EQ(run({"delete", "2"}), kExitUsage);

    EXPECT_THAT(errors(), HasSubstr("--yes"));
    EXPECT_TRUE(isStored());
}

TEST_F(DeleteTest, AnEmptySlotStaysEmpty) {
    EXPECT_EQ(run({"delete", "5", "--yes"}), kExitOk);
}

TEST_F(DeleteTest, ASlotThatTheDeviceDoesNotHaveIsRefused) {
    EXPECT_EQ(run({"delete", "8", "--yes"}), kExitUsage);
    EXPECT_EQ(device_.callsOf("DeleteSlot"), 0);
}

TEST_F(DeleteTest, ReportsAsJson) {
    EXPECT_EQ(run({"--json", "delete", "2", "--yes"}), kExitOk);
    EXPECT_EQ(json::parse(output()), (json{{"slot", 2}, {"deleted", true}}));
}

}  // namespace
}  // namespace calibrate
