#include "PlatformStandIns.h"
#include "modules/dirac/RpcHandler.h"
#include "sdk/cm/VeskPaths.h"
#include "support/DeviceFixture.h"

#include <gmock/gmock.h>

using stand_ins::state;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class DiracFailuresTest : public DeviceFixture {
protected:
    DiracFailuresTest() { stand_ins::reset(); }

    void startWith(const QList<VeskDiracSlot>& stored) {
        startPlatform();
        VeskDiracSlotsList list = settingsOf(stored.first().slotIdx(), stored).diracSlotsList();
        list.setFilteringEnabled(true);
        write(VeskDiracSlotsSettingsPath(), VeskValue::of(list));
        constructWorker();
        settle();
    }

    void changeConfiguration() {
        VeskDiracConfig config = valueAt(VeskDiracConfigPath()).diracConfig();
        config.setNumberOfSlots(config.numberOfSlots() + 1);
        write(VeskDiracConfigPath(), VeskValue::of(config));
        settle();
    }

    /// The handler that the last server was started with.
    static std::shared_ptr<RpcHandler> handler() {
        return std::dynamic_pointer_cast<RpcHandler>(state().service.lock());
    }

    void restartAction() { activateNode(VeskDiracRestartServerPath()); }
};

const VeskDiracSlot kSofa = slotRecord(3, QStringLiteral("Sofa"), 77);
const VeskDiracSlot kTable = slotRecord(1, QStringLiteral("Table"), 78);

}  // namespace

// ---- The DSP library ----

TEST_F(DiracFailuresTest, AsksTheDspLibraryForFourRatesOfASlot) {
    startWith({kSofa});
    const auto& calls = state().calculations;
    ASSERT_EQ(calls.size(), 4U);
    for (std::size_t rate = 0; rate < 4; ++rate) {
        EXPECT_EQ(calls.at(rate).sampleRate, kDiracSubSamplerRates.at(rate));
        EXPECT_EQ(calls.at(rate).numSpeakers, 2U);
        EXPECT_EQ(calls.at(rate).capacity, 4096U);
    }
}

TEST_F(DiracFailuresTest, AsksTheDspLibraryForNothingThatIsCached) {
    startWith({kSofa, kTable});
    EXPECT_EQ(state().calculations.size(), 8U);
    state().calculations.clear();
    restartDevice();
    EXPECT_THAT(state().calculations, IsEmpty());
    EXPECT_THAT(image().subSamplerSizes, ElementsAre(16, 16, 16, 16));
}

TEST_F(DiracFailuresTest, AsksTheDspLibraryAgainForAReplacedSlotOnly) {
    startWith({kSofa, kTable});
    state().calculations.clear();
    VeskDiracSlot replaced = kTable;
    replaced.setCreationTime(79);
    write(VeskDiracSlotsSettingsPath(), settingsOf(3, {kSofa, replaced}));
    settle();
    EXPECT_EQ(state().calculations.size(), 4U);
}

TEST_F(DiracFailuresTest, LeavesOutARateThatFails) {
    state().failingRate = 96000;
    startWith({kSofa});
    EXPECT_THAT(image().subSamplerSizes, ElementsAre(16, 0, 16, 16));
    EXPECT_EQ(image().bypass, 0);
    EXPECT_TRUE(logged("ERROR Failed to precache sub sampler filter data"));
    EXPECT_TRUE(logged("ERROR Failed to precache filter data for Sofa rate: 96000"));
    EXPECT_TRUE(logged("WARN Missing precached data for filter Sofa rate 96000"));
    EXPECT_THAT(cacheFiles(),
                ElementsAre("3_176400_77_data", "3_192000_77_data", "3_88200_77_data"));
}

TEST_F(DiracFailuresTest, LeavesOutARateWithoutData) {
    state().size = 0;
    startWith({kSofa});
    EXPECT_THAT(image().subSamplerSizes, ElementsAre(0, 0, 0, 0));
    EXPECT_FALSE(logged("ERROR Failed to precache sub sampler filter data"));
    EXPECT_TRUE(logged("ERROR Failed to precache filter data for Sofa rate: 88200"));
}

// ---- The lock ----

TEST_F(DiracFailuresTest, GoesOnWithoutSegmentWhenTheLockIsNotToBeHad) {
    state().lockIsAvailable = false;
    testing::internal::CaptureStderr();
    startWith({kSofa});
    EXPECT_FALSE(segmentExists());
    EXPECT_THAT(state().serverCalls, ElementsAre("create 5002"));
    EXPECT_EQ(runtimeSlots(), settings());
    stopDevice();
    EXPECT_THAT(
        testing::internal::GetCapturedStderr(),
        testing::HasSubstr("set(): failed to set new value, shared memory handle is not valid\n"));
}

// ---- The server library ----

TEST_F(DiracFailuresTest, StopsTheFirstServerBeforeItStartsTheSecond) {
    startDevice();
    changeConfiguration();
    EXPECT_THAT(state().serverCalls,
                ElementsAre("create 5002", "stop 1", "create 5002", "destroy 1"));
}

TEST_F(DiracFailuresTest, LogsWhatAStartThrows) {
    state().serverException = "no network";
    startDevice();
    EXPECT_TRUE(logged("FATAL Exception: no network"));
    EXPECT_FALSE(logged("ERROR DIRAC CAN NOT START SERVER"));
    restartAction();
    EXPECT_THAT(state().serverCalls, ElementsAre("create 5002"));
}

TEST_F(DiracFailuresTest, KeepsTheStoppedServerWhenTheNextStartThrows) {
    startDevice();
    state().serverException = "no network";
    changeConfiguration();
    EXPECT_TRUE(logged("FATAL Exception: no network"));
    restartAction();
    EXPECT_THAT(state().serverCalls, ElementsAre("create 5002", "stop 1", "create 5002", "stop 1"));
}

TEST_F(DiracFailuresTest, AFailedStartLeavesNoServerToStop) {
    startDevice();
    state().serverStarts = false;
    changeConfiguration();
    EXPECT_TRUE(logged("ERROR DIRAC CAN NOT START SERVER"));
    restartAction();
    EXPECT_THAT(state().serverCalls,
                ElementsAre("create 5002", "stop 1", "create 5002", "destroy 1"));
    EXPECT_TRUE(logged("INFO Stop PRGC Dirac server"));
}

TEST_F(DiracFailuresTest, GivesTheSegmentBackBeforeTheServerGoes) {
    startDevice();
    ASSERT_TRUE(segmentExists());
    state().segmentExistedAtServersEnd = true;
    stopDevice();
    EXPECT_THAT(state().serverCalls, ElementsAre("create 5002", "destroy 1"));
    EXPECT_FALSE(state().segmentExistedAtServersEnd);
}

// ---- Writes to the tree ----

TEST_F(DiracFailuresTest, AnswersWithWhatUpdatingASlotThrows) {
    startWith({kSofa});
    state().writeException = "the tree is gone";
    dio::endpoint::SlotInfoUpdate update;
    update.set_slot(3);
    dio::endpoint::Void reply;
    EXPECT_EQ(outcome(handler()->UpdateSlotInfo(nullptr, &update, &reply)),
              "INVALID_ARGUMENT \"the tree is gone\"");
    state().writeException.clear();
    EXPECT_EQ(outcome(handler()->UpdateSlotInfo(nullptr, &update, &reply)), "OK");
}

TEST_F(DiracFailuresTest, AnswersWithWhatDeletingASlotThrows) {
    startWith({kSofa});
    state().writeException = "the tree is gone";
    const dio::endpoint::Index index = indexOf(3);
    dio::endpoint::Void reply;
    EXPECT_EQ(outcome(handler()->DeleteSlot(nullptr, &index, &reply)),
              "INVALID_ARGUMENT \"the tree is gone\"");
    state().writeException.clear();
}

TEST_F(DiracFailuresTest, PassesOnWhatActivatingASlotThrows) {
    startWith({kSofa, kTable});
    state().writeException = "the tree is gone";
    const dio::endpoint::Index index = indexOf(1);
    dio::endpoint::Void reply;
    EXPECT_THROW(handler()->SetActiveSlot(nullptr, &index, &reply), std::runtime_error);
    state().writeException.clear();
}

TEST_F(DiracFailuresTest, EndsATransferWithoutAnybodyToTellTheProgress) {
    startWith({kSofa});
    const dio::endpoint::SlotInfo slot = slotOf(2, "New");
    const dio::endpoint::CellIndex cell = cellOf(5, 0, 0);
    const dio::endpoint::Index index = indexOf(2);
    dio::endpoint::Void reply;
    EXPECT_EQ(outcome(handler()->BeginFilterTransfer(nullptr, &slot, &reply)), "OK");
    EXPECT_EQ(outcome(handler()->SetTransferCell(nullptr, &cell, &reply)), "OK");
    EXPECT_EQ(outcome(handler()->EndFilterTransfer(nullptr, &index, nullptr)), "OK");
    EXPECT_THAT(slotIndices(settings()), ElementsAre(3, 2));
}
