#include "calibrate/Errors.h"
#include "calibrate/Slots.h"
#include "calibrate/support/CommandFixture.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace calibrate {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

using SlotsTest = CommandFixture;

TEST_F(SlotsTest, ListsEverySlotAndMarksTheActiveOne) {
    device_.store(0, "Day", 1'714'566'600'000);
    device_.store(3, "Night", 42);
    device_.setActive(3);
    ASSERT_EQ(run({"slots"}), kExitOk) << errors();

    EXPECT_THAT(output(), ContainsRegex("\n0 +Day +FIR +2024-05-01 12:30:00 UTC +before\n"));
    EXPECT_THAT(output(), ContainsRegex("\n1 +empty\n"));
    EXPECT_THAT(output(), ContainsRegex("\n3 +active +Night +FIR +42 +before\n"));
    EXPECT_THAT(output(), ContainsRegex("\n7 +empty\n"));
}

TEST_F(SlotsTest, SaysWhenCorrectionIsOff) {
    device_.store(0, "Day", 1);
    device_.setActive(0);
    device_.setMode(true, true, false);
    ASSERT_EQ(run({"slots"}), kExitOk);

    EXPECT_THAT(output(), HasSubstr("active, correction off"));
}

TEST_F(SlotsTest, SaysWhenNoSlotIsActive) {
    ASSERT_EQ(run({"slots"}), kExitOk);

    EXPECT_THAT(output(), HasSubstr("No slot is active."));
}

TEST_F(SlotsTest, ListsThemAsJson) {
    device_.store(2, "Night", 1'714'566'600'000);
    device_.setActive(2);
    ASSERT_EQ(run({"slots", "--json"}), kExitOk);

    const json all = json::parse(output());
    EXPECT_EQ(all["active_slot"], 2);
    EXPECT_EQ(all["filtering"], true);
    EXPECT_EQ(all["slots"].size(), 8U);
    EXPECT_EQ(all["slots"][2], (json{{"slot", 2},
                                     {"empty", false},
                                     {"active", true},
                                     {"name", "Night"},
                                     {"type", "FIR"},
                                     {"description", "before"},
                                     {"creation_time", 1'714'566'600'000},
                                     {"created_utc", "2024-05-01 12:30:00 UTC"}}));
    EXPECT_EQ(all["slots"][0]["empty"], true);
    EXPECT_EQ(all["slots"][0]["created_utc"], nullptr);
}

TEST_F(SlotsTest, ASlotWithoutANameIsNotCalledEmptyWhenItHasATime) {
    device_.store(0, "", 5);
    ASSERT_EQ(run({"slots"}), kExitOk);

    EXPECT_THAT(output(), Not(ContainsRegex("\n0 +empty")));
}

}  // namespace
}  // namespace calibrate
