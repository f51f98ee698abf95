// Many choices in a row by the calibration client: the menu, the settings and what the DSP gets
// follow each other and must come to rest on one slot.

#include "system/DeviceTest.h"

namespace {

using namespace std::chrono_literals;

class ActivationBurstTest : public DeviceTest {
protected:
    void SetUp() override {
        start();
        for (int slot = 0; slot < kSlots; ++slot) {
            designs.push_back(makeDesign({}, static_cast<std::uint32_t>(slot)));
            transfer(slot, designs.back());
        }
    }

    void activateAlternately(int times) {
        for (int i = 0; i < times; ++i)
            ASSERT_TRUE(client().activate(i % kSlots).ok()) << i;
    }

    static constexpr int kSlots = 2;
    std::vector<FilterDesign> designs;
};

TEST_F(ActivationBurstTest, aThousandAlternatingChoicesComeToRestInAgreement) {
    activateAlternately(1000);

    ASSERT_TRUE(eventually([&] { return tree().isQuietFor(500ms); }));
    const int slot = tree().value(kSlotsSettings).at("activeSlot");
    EXPECT_EQ(slot, (1000 - 1) % kSlots) << "not the last choice";
    EXPECT_EQ(tree().value(kSlotsRuntime), tree().value(kSlotsSettings));
    EXPECT_EQ(tree().value(kMenu), slot);
    EXPECT_TRUE(holdsDesign(*image(), designs.at(static_cast<std::size_t>(slot))));
}

TEST_F(ActivationBurstTest, choicesOfTheClientAndOfTheMenuAtOnceComeToRestInAgreement) {
    for (int i = 0; i < 200; ++i) {
        ASSERT_TRUE(client().activate(i % kSlots).ok());
        ASSERT_TRUE(tree().set(kMenu, (i + 1) % kSlots).ok());
    }

    ASSERT_TRUE(eventually([&] { return tree().isQuietFor(500ms); }));
    const int slot = tree().value(kSlotsSettings).at("activeSlot");
    EXPECT_EQ(tree().value(kSlotsRuntime), tree().value(kSlotsSettings));
    EXPECT_EQ(tree().value(kMenu), slot);
    EXPECT_TRUE(holdsDesign(*image(), designs.at(static_cast<std::size_t>(slot))));
}

}  // namespace
