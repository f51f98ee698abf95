// Choosing a filter in the device's menu, through vesk-tree.

#include "system/DeviceTest.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class MenuTest : public DeviceTest {
protected:
    void SetUp() override {
        start();
        transfer(3, design, "Living room");
        activate(3, design);
    }

    const FilterDesign design = makeDesign({}, 1);
};

TEST_F(MenuTest, offersOffAndEachFilter) {
    transfer(0, makeDesign({}, 2), "Night");
    EXPECT_TRUE(eventually([&] { return tree().rowTitles(kMenuRows).size() == 3; }));
    EXPECT_THAT(tree().rowTitles(kMenuRows),
                ElementsAre("off", "Filter: Living room", "Filter: Night"));
}

TEST_F(MenuTest, offBypassesTheDspAndAFilterBringsItBack) {
    ASSERT_EQ(treeTool({"set", kMenu, "off"}).exitCode, 0);
    EXPECT_TRUE(awaitBypass());
    ASSERT_EQ(treeTool({"set", kMenu, "Filter: Living room"}).exitCode, 0);
    EXPECT_TRUE(awaitDesign(design));
}

TEST_F(MenuTest, anIndexWithoutFilterIsRefused) {
    const ProcessResult refused = treeTool({"set", kMenu, "4"});
    EXPECT_NE(refused.exitCode, 0);
    EXPECT_THAT(refused.errors, HasSubstr("Invalid filter ID"));
    EXPECT_EQ(tree().value(kMenu), 3);
    EXPECT_TRUE(holdsDesign(*image(), design));
}

TEST_F(MenuTest, aCastSessionRefusesAnyChoice) {
    ASSERT_EQ(treeTool({"set", kCastActive, "true"}).exitCode, 0);
    const ProcessResult refused = treeTool({"set", kMenu, "off"});
    EXPECT_NE(refused.exitCode, 0);
    EXPECT_THAT(refused.errors, HasSubstr("Unable to set during Cast session"));
    EXPECT_EQ(tree().value(kMenu), 3);

    ASSERT_EQ(treeTool({"set", kCastActive, "false"}).exitCode, 0);
    EXPECT_EQ(treeTool({"set", kMenu, "off"}).exitCode, 0);
    EXPECT_TRUE(awaitBypass());
}

}  // namespace
