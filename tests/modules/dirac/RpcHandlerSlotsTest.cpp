#include "sdk/cm/VeskPaths.h"
#include "support/DeviceFixture.h"

#include <gmock/gmock.h>

#include <thread>

using namespace dio::endpoint;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

namespace {

constexpr const char* kOutOfRange = "INVALID_ARGUMENT \"index out of range\"";

class RpcHandlerSlotsTest : public DeviceFixture {
protected:
    void SetUp() override { startDevice(); }

    static SlotInfoUpdate updateOf(int slot, const std::string& name) {
        SlotInfoUpdate update;
        update.set_slot(slot);
        update.set_name(name);
        update.set_filter_type_name("Type of " + name);
        update.set_description("About " + name);
        return update;
    }

    int activeSlot() { return ask(&Stub::GetActiveSlot, Void()).value(); }

    static VeskDiracSlot stored(int position) {
        return VeskDiracSlot(settings().slots_().at(position));
    }
};

}  // namespace

TEST_F(RpcHandlerSlotsTest, StartsWithoutActiveSlot) {
    EXPECT_EQ(activeSlot(), -1);
    EXPECT_TRUE(log().contains(": Active slot: -1"));
}

TEST_F(RpcHandlerSlotsTest, ActivatesASlot) {
    transferFir(2, "Sofa", {1.0F});
    activate(2);
    EXPECT_EQ(activeSlot(), 2);
    EXPECT_TRUE(log().contains(": Set new active slot: 2"));
    settle();
    EXPECT_EQ(settings().activeSlot(), 2);
    EXPECT_EQ(menuSelection(), 2);
    EXPECT_TRUE(settings().filteringEnabled());
}

TEST_F(RpcHandlerSlotsTest, ActivatingAnUnknownSlotLeavesNoneActive) {
    transferFir(2, "Sofa", {1.0F});
    activate(2);
    settle();  // the menu follows, and would choose slot 2 once more
    activate(1);
    EXPECT_EQ(activeSlot(), -1);
    activate(99);
    EXPECT_EQ(activeSlot(), -1);
    EXPECT_EQ(settings().activeSlot(), 2);
}

TEST_F(RpcHandlerSlotsTest, DescribesAStoredSlot) {
    transferFir(2, "Sofa", {1.0F}, 1700000000);
    const auto info = ask(&Stub::GetSlotInfo, indexOf(2));
    EXPECT_EQ(info.slot(), 0) << "the reply does not repeat the index";
    EXPECT_EQ(info.name(), "Sofa");
    EXPECT_EQ(info.filter_type_name(), "Correction");
    EXPECT_EQ(info.description(), "For a test");
    EXPECT_EQ(info.creation_time(), 1700000000);
    EXPECT_EQ(info.num_inputs(), 2U);
    EXPECT_EQ(info.num_speakers(), 2U);
    EXPECT_EQ(info.num_sections(), 6U);
}

TEST_F(RpcHandlerSlotsTest, DescribesAnEmptySlotByItsSizesOnly) {
    const auto info = ask(&Stub::GetSlotInfo, indexOf(3));
    EXPECT_EQ(info.name(), "");
    EXPECT_EQ(info.creation_time(), 0);
    EXPECT_EQ(info.num_sections(), 6U);
}

TEST_F(RpcHandlerSlotsTest, RejectsASlotInfoOutOfRange) {
    EXPECT_EQ(outcomeOf(&Stub::GetSlotInfo, indexOf(4)), kOutOfRange);
    EXPECT_EQ(outcomeOf(&Stub::GetSlotInfo, indexOf(-1)), kOutOfRange);
}

TEST_F(RpcHandlerSlotsTest, RenamesASlot) {
    transferFir(2, "Sofa", {1.0F});
    ask(&Stub::UpdateSlotInfo, updateOf(2, "Couch"));
    const auto info = ask(&Stub::GetSlotInfo, indexOf(2));
    EXPECT_EQ(info.name(), "Couch");
    EXPECT_EQ(info.filter_type_name(), "Type of Couch");
    EXPECT_EQ(info.description(), "About Couch");
    EXPECT_EQ(info.creation_time(), 1);
    EXPECT_EQ(stored(0).name(), QStringLiteral("Couch"));
    settle();
    EXPECT_THAT(menuRows(), ElementsAre("off = -1", "Filter: Couch = 2"));
}

TEST_F(RpcHandlerSlotsTest, RenamingAnUnknownSlotChangesNothing) {
    EXPECT_EQ(outcomeOf(&Stub::UpdateSlotInfo, updateOf(1, "Couch")), "OK");
    EXPECT_EQ(outcomeOf(&Stub::UpdateSlotInfo, updateOf(-7, "Couch")), "OK");
    EXPECT_TRUE(slotIndices(settings()).empty());
    EXPECT_TRUE(log().contains("Unable to update filter slot, not found: 1"));
}

TEST_F(RpcHandlerSlotsTest, DeletesASlot) {
    transferFir(1, "Sofa", {1.0F});
    transferFir(2, "Table", {1.0F});
    ask(&Stub::DeleteSlot, indexOf(1));
    EXPECT_THAT(slotIndices(settings()), ElementsAre(2));
    EXPECT_EQ(ask(&Stub::GetSlotInfo, indexOf(1)).name(), "");
    EXPECT_TRUE(
        log().contains("RpcHandler::DeleteSlot(grpc::ServerContext*, const dio::endpoint::Index*, "
                       "dio::endpoint::Void*): Slot 1"));
    EXPECT_EQ(outcomeOf(&Stub::DeleteSlot, indexOf(99)), "OK");
}

TEST_F(RpcHandlerSlotsTest, DeletingTheActiveSlotSwitchesToBypass) {
    transferFir(1, "Sofa", {1.0F});
    activate(1);
    settle();
    ASSERT_EQ(image().bypass, 0);
    ask(&Stub::DeleteSlot, indexOf(1));
    settle();
    EXPECT_EQ(activeSlot(), -1);
    EXPECT_EQ(settings().activeSlot(), -1);
    EXPECT_EQ(menuSelection(), -1);
    EXPECT_EQ(image().bypass, 1);
}

TEST_F(RpcHandlerSlotsTest, KeepsItsSlotsOverARestart) {
    transferFir(2, "Sofa", {0.25F, 0.5F}, 9);
    activate(2);
    settle();
    const VeskDiracSlotsList before = settings();
    restartDevice();
    EXPECT_EQ(settings(), before);
    EXPECT_EQ(activeSlot(), 2);
    EXPECT_EQ(ask(&Stub::GetSlotInfo, indexOf(2)).name(), "Sofa");
    EXPECT_EQ(menuSelection(), 2);
    EXPECT_EQ(segmentTaps(1, 2), (std::vector<float>{0.25F, 0.5F}));
    EXPECT_EQ(image().bypass, 0);
}

TEST_F(RpcHandlerSlotsTest, LosesNoChangeOfSeveralClients) {
    const FilterDesign design = makeDesign({2, 4, 0, false}, 1);
    // One transfer at a time is open, so one client transfers and the others work on slots.
    std::thread transferring([&design] {
        CalibrationClient client;
        for (int round = 1; round <= 10; ++round) {
            EXPECT_EQ(outcome(client.transfer(makeSlot(0, "Slot 0", round), design)), "OK");
            SlotInfo stored;
            EXPECT_EQ(outcome(client.slotInfo(0, &stored)), "OK");
            EXPECT_EQ(stored.creation_time(), round);
            EXPECT_EQ(outcome(client.activate(0)), "OK");
        }
    });
    std::thread switching([this] {
        CalibrationClient client;
        for (int round = 0; round < 100; ++round)
            client.activate(round % 4);
    });
    std::thread deleting([this] {
        CalibrationClient client;
        for (int round = 0; round < 100; ++round)
            client.remove(3);
    });
    transferring.join();
    switching.join();
    deleting.join();
    settle();
    EXPECT_THAT(slotIndices(settings()), UnorderedElementsAre(0));
    EXPECT_EQ(runtimeSlots(), settings());
}
