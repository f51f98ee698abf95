// What a device keeps when it is ended in order and started again.

#include "system/DeviceTest.h"

namespace {

using testing::ElementsAre;

class RestartTest : public DeviceTest {
protected:
    nlohmann::json segmentContent() const {
        auto content = nlohmann::json::parse(segmentTool({"show", "--json"}).output);
        content.erase("timeStamp");
        return content;
    }
};

TEST_F(RestartTest, slotsMenuSegmentAndActiveSlotAreAsBefore) {
    const FilterDesign first = makeDesign({2, 1000, 30, false}, 1);
    const FilterDesign second = makeDesign({2, 1000, 30, false}, 2);
    start();
    transfer(2, first, "First");
    transfer(5, second, "Second");
    activate(2, first);
    const auto settings = tree().value(kSlotsSettings);
    const auto segment = segmentContent();

    restart();

    EXPECT_TRUE(awaitDesign(first));
    EXPECT_EQ(segmentContent(), segment);
    EXPECT_EQ(tree().value(kSlotsSettings), settings);
    EXPECT_EQ(tree().value(kSlotsRuntime), settings);
    EXPECT_EQ(tree().value(kMenu), 2);
    EXPECT_THAT(tree().rowTitles(kMenuRows), ElementsAre("off", "Filter: First", "Filter: Second"));
    dio::endpoint::SlotInfo info;
    ASSERT_TRUE(client().slotInfo(5, &info).ok());
    EXPECT_EQ(info.name(), "Second");
}

TEST_F(RestartTest, bassControlIsAsBefore) {
    options().description = "ten-channel";
    const FilterDesign design = makeDesign(kFullDesign, 3);
    start();
    transfer(0, design);
    activate(0, design);

    restart();

    EXPECT_TRUE(awaitDesign(design));
}

TEST_F(RestartTest, offStaysOff) {
    const FilterDesign design = makeDesign({}, 4);
    start();
    transfer(0, design);
    activate(0, design);
    ASSERT_TRUE(tree().set(kMenu, -1).ok());
    ASSERT_TRUE(awaitBypass());

    restart();

    EXPECT_TRUE(eventually([&] { return tree().value(kMenu) == -1; }));
    EXPECT_TRUE(tree().isQuietFor(std::chrono::milliseconds(300)));
    EXPECT_EQ(image()->bypass, 1);
}

TEST_F(RestartTest, cachedSlotsAreNotCalculatedAgain) {
    const FilterDesign design = makeDesign({}, 5);
    start();
    transfer(0, design);
    activate(0, design);
    EXPECT_TRUE(device().awaitLog("Filter data not cached"));

    restart();

    EXPECT_TRUE(awaitDesign(design));
    EXPECT_EQ(device().log().find("Filter data not cached"), std::string::npos);
}

TEST_F(RestartTest, anOrderlyEndRemovesTheSegment) {
    start();
    image();
    device().stop();
    EXPECT_EQ(segmentTool({"show"}).exitCode, 1);
}

}  // namespace
