#include "modules/dirac/common/FilterManagerFixture.h"

using processing::FilterManager;
using testing::ElementsAre;
using testing::IsEmpty;

class FilterManagerModesTest : public FilterManagerFixture {
protected:
    FilterManagerModesTest() {
        VeskDiracSlotsList list = settings();
        list.setActiveSlot(2);
        VeskDiracSlot record;
        record.setSlotIdx(2);
        list.setSlots_({record});
        setSettings(list);
    }

    static VeskDiracSlotsList runtime() {
        return valueAt(VeskDiracSlotsRuntimePath()).diracSlotsList();
    }
    static bool flagAt(const CMPath& path) { return valueAt(path).bool_(); }

    FilterManager manager{kSlots, kVariants, 0};
    LogCapture modesLog{"Dirac"};
};

TEST_F(FilterManagerModesTest, DelayAndGainWithoutFiltering) {
    setValueAt(VeskTalvorCorbelFilteringEnabled(), VeskValue::ofBool(true));
    manager.enableProcessing(true, false);
    EXPECT_TRUE(settings().delayGainEnabled());
    EXPECT_FALSE(settings().filteringEnabled());
    EXPECT_FALSE(flagAt(VeskTalvorCorbelFilteringEnabled()));
    EXPECT_TRUE(manager.isDelayAndGainProcessingEnabled());
    EXPECT_THAT(modesLog.lines(), IsEmpty());
}

TEST_F(FilterManagerModesTest, FilteringWithoutDelayAndGain) {
    manager.enableProcessing(false, true);
    EXPECT_FALSE(settings().delayGainEnabled());
    EXPECT_TRUE(settings().filteringEnabled());
    EXPECT_TRUE(flagAt(VeskTalvorCorbelFilteringEnabled()));
    EXPECT_FALSE(manager.isDelayAndGainProcessingEnabled());
}

TEST_F(FilterManagerModesTest, EnablingProcessingKeepsSlotsAndActiveSlot) {
    manager.enableProcessing(true, true);
    EXPECT_EQ(settings().activeSlot(), 2);
    EXPECT_THAT(storedSlots(), ElementsAre(2));
}

TEST_F(FilterManagerModesTest, BackupsOfTheModesHaveNoEffect) {
    device.tree().provide({VeskDiracFilteringBackupPath(), VeskValue::ofBool(true)});
    device.tree().provide({VeskDiracGainAndDelayBackupPath(), VeskValue::ofBool(true)});
    manager.enableProcessing(false, false);
    EXPECT_FALSE(settings().delayGainEnabled());
    EXPECT_FALSE(settings().filteringEnabled());
    EXPECT_TRUE(flagAt(VeskDiracFilteringBackupPath()));
    EXPECT_TRUE(flagAt(VeskDiracGainAndDelayBackupPath()));
}

TEST_F(FilterManagerModesTest, DisablingTheFilterSwitchesBothStagesOffAtRuntime) {
    manager.enableProcessing(true, true);
    manager.disableFilter();
    EXPECT_FALSE(runtime().delayGainEnabled());
    EXPECT_FALSE(runtime().filteringEnabled());
    EXPECT_EQ(runtime().activeSlot(), 2);
    EXPECT_EQ(runtime().slots_(), settings().slots_());
}

TEST_F(FilterManagerModesTest, DisablingTheFilterKeepsTheUsersMode) {
    manager.enableProcessing(true, true);
    const VeskDiracSlotsList before = settings();
    manager.disableFilter();
    EXPECT_TRUE(manager.isDelayAndGainProcessingEnabled());
    EXPECT_EQ(settings(), before);
}

TEST_F(FilterManagerModesTest, EnablingTheFilterMakesRuntimeEqualToTheSettings) {
    manager.enableProcessing(true, true);
    VeskDiracSlotsList other;
    other.setActiveSlot(7);
    setValueAt(VeskDiracSlotsRuntimePath(), VeskValue::of(other));
    manager.disableFilter();
    manager.enableFilter();
    EXPECT_EQ(runtime(), settings());
    EXPECT_EQ(valueAt(VeskDiracSlotsRuntimePath()), valueAt(VeskDiracSlotsSettingsPath()));
}

TEST_F(FilterManagerModesTest, SettingsChangedDuringTheBypassAreWhatComesBack) {
    manager.disableFilter();
    manager.enableProcessing(true, true);
    EXPECT_FALSE(runtime().filteringEnabled());
    manager.enableFilter();
    EXPECT_TRUE(runtime().filteringEnabled());
    EXPECT_TRUE(runtime().delayGainEnabled());
}

TEST_F(FilterManagerModesTest, BypassIsTraced) {
    manager.disableFilter();
    manager.enableFilter();
    EXPECT_THAT(modesLog.lines(),
                ElementsAre("TRACE Enter void processing::FilterManager::disableFilter()",
                            "TRACE Leave void processing::FilterManager::disableFilter()",
                            "TRACE Enter void processing::FilterManager::enableFilter()",
                            "TRACE Leave void processing::FilterManager::enableFilter()"));
}

TEST_F(FilterManagerModesTest, CalibrationPlaybackIsShownAndLogged) {
    manager.playbackLoopActive(true);
    EXPECT_TRUE(flagAt(VeskTalvorCorbelDiracCalibrationStatusPath()));
    manager.playbackLoopActive(false);
    EXPECT_FALSE(flagAt(VeskTalvorCorbelDiracCalibrationStatusPath()));
    EXPECT_THAT(
        modesLog.lines(),
        ElementsAre("TRACE Enter void processing::FilterManager::playbackLoopActive(bool): 1",
                    "INFO Calibration playback started",
                    "TRACE Leave void processing::FilterManager::playbackLoopActive(bool)",
                    "TRACE Enter void processing::FilterManager::playbackLoopActive(bool): 0",
                    "INFO Calibration playback stopped",
                    "TRACE Leave void processing::FilterManager::playbackLoopActive(bool)"));
}

TEST_F(FilterManagerModesTest, ConnectedClientIsShownWhenTheCallReturns) {
    manager.clientConnected(true);
    EXPECT_TRUE(flagAt(VeskTalvorCorbelDiracClientStatusPath()));
    EXPECT_THAT(modesLog.lines(), ElementsAre("INFO Dirac Live was connected"));
}

TEST_F(FilterManagerModesTest, DisconnectedClientIsShownWhenTheCallReturns) {
    manager.clientConnected(true);
    manager.clientConnected(false);
    EXPECT_FALSE(flagAt(VeskTalvorCorbelDiracClientStatusPath()));
    EXPECT_THAT(modesLog.lines(),
                ElementsAre("INFO Dirac Live was connected", "INFO Dirac Live was disconnected"));
}
