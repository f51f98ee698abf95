#include "modules/dirac/common/Biquads.h"
#include "modules/dirac/common/FilterManager.h"
#include "modules/dirac/common/FilterManagerFixture.h"
#include "modules/dirac/common/FilterManagerRecords.h"

#include <stdexcept>

using processing::BassControlFilterCoefficients;
using processing::FilterCoefficients;
using processing::FilterManager;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// A variant with the tap `tap` in each of its cells.
FilterCoefficients variant(float tap, int cells = 2) {
    FilterCoefficients filter;
    for (int cell = 0; cell < cells; ++cell)
        filter.setCoefficientsForCell(cell, {tap}, {});
    return filter;
}

std::vector<FilterCoefficients> design(float tap) {
    return {variant(tap), variant(tap + 1)};
}

BassControlFilterCoefficients bassControl() {
    BassControlFilterCoefficients filter;
    filter.setDelayGainForCell({4, 0, 0}, 1, 1.0F);
    return filter;
}

float firstTap(const VeskDiracSlot& record) {
    const VeskDiracChannelParams channel(record.params().at(0).toList().at(0));
    return channel.fiir().taps().at(0).toFloat();
}

VeskDiracSlot recordOf(int slot, const QString& name) {
    VeskDiracSlot record;
    record.setSlotIdx(slot);
    record.setName(name);
    record.setFilterTypeName(QStringLiteral("type of ") + name);
    record.setDescription(QStringLiteral("about ") + name);
    record.setCreationTime(1000 + slot);
    return record;
}

VeskDiracSlot recordOf(int slot, const QString& name,
                       const std::vector<FilterCoefficients>& filters) {
    VeskDiracSlot record = recordOf(slot, name);
    record.setParams(processing::channelParams(filters));
    record.setBcParams(processing::bassControlParams({bassControl(), bassControl()}));
    record.setSize(static_cast<qint64>(filters.size()));
    return record;
}

}  // namespace

class FilterManagerTest : public FilterManagerFixture {
protected:
    FilterManager manager = makeManager();
};

class FilterManagerReloadTest : public FilterManagerFixture {};

class FilterManagerReloadDeathTest : public FilterManagerFixture {};

class FilterManagerUploadTest : public FilterManagerTest {};

TEST_F(FilterManagerTest, KnowsNothingOnAFreshDevice) {
    EXPECT_EQ(manager.getNumberOfAvailableSlots(), 8);
    EXPECT_EQ(manager.getActiveSlot(), -1);
    EXPECT_FALSE(manager.isDelayAndGainProcessingEnabled());
    EXPECT_FALSE(manager.slotExists(0));
    EXPECT_EQ(manager.findSlot(0), nullptr);
    EXPECT_THAT(log.lines(), IsEmpty());
}

// Creating.

TEST_F(FilterManagerTest, SlotAtTheLimitIsRefusedAndNothingWritten) {
    const VeskDiracSlotsList before = settings();
    EXPECT_FALSE(manager.createFilterSlot(8, "name", "type", "text", 1));
    EXPECT_FALSE(manager.createFilterSlotLocal(8, "name", "type", "text", 1));
    EXPECT_FALSE(manager.slotExists(8));
    EXPECT_EQ(settings(), before);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(FilterManagerTest, LastSlotIsAppendedAtTheEnd) {
    ASSERT_TRUE(manager.createFilterSlot(2, "two", "", "", 0));
    EXPECT_TRUE(manager.createFilterSlot(7, "Живая комната", "typé", "a text", 1700000000123));

    EXPECT_THAT(storedSlots(), ElementsAre(2, 7));
    const VeskDiracSlot record = storedRecord(7);
    EXPECT_EQ(record.name(), QString::fromUtf8("Живая комната"));
    EXPECT_EQ(record.filterTypeName(), QString::fromUtf8("typé"));
    EXPECT_EQ(record.description(), QStringLiteral("a text"));
    EXPECT_EQ(record.creationTime(), 1700000000123);
    EXPECT_EQ(record.hash().size(), 5) << "no size, params or bcParams";
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(FilterManagerTest, NegativeSlotIsAccepted) {
    EXPECT_TRUE(manager.createFilterSlot(-1, "name", "type", "text", 1));
    EXPECT_TRUE(manager.slotExists(-1));
    EXPECT_THAT(storedSlots(), ElementsAre(-1));
}

TEST_F(FilterManagerTest, NewSlotHasAnEmptyFilterForEachVariant) {
    manager.createFilterSlot(3, "name", "type", "text", 42);
    EXPECT_TRUE(manager.slotExists(3));
    ASSERT_EQ(manager.findSlot(3)->filters.size(), 2U);
    EXPECT_EQ(manager.findSlot(3)->filters[1].size(), 0U);
    EXPECT_THAT(manager.findSlot(3)->bassControlFilters, IsEmpty());
    const processing::FilterSlotInfo& info = manager.getInfoForSlot(3);
    EXPECT_EQ(info.name, "name");
    EXPECT_EQ(info.filterTypeName, "type");
    EXPECT_EQ(info.description, "text");
    EXPECT_EQ(info.creationTime, 42);
}

TEST_F(FilterManagerTest, LocalSlotIsNotWritten) {
    const VeskDiracSlotsList before = settings();
    EXPECT_TRUE(manager.createFilterSlotLocal(3, "name", "type", "text", 42));
    EXPECT_TRUE(manager.slotExists(3));
    EXPECT_EQ(settings(), before);
}

TEST_F(FilterManagerTest, SlotCreatedAgainLosesItsStoredDesignAndMovesToTheEnd) {
    for (const int slot : {1, 2, 3})
        manager.createFilterSlot(slot, "name", "", "", 0);
    manager.setFilterForSlot(1, design(5.0F), {bassControl()});
    manager.setFilterForSlot(2, design(6.0F), {});
    manager.setFilterForSlot(3, design(7.0F), {});
    ASSERT_THAT(storedSlots(), ElementsAre(1, 2, 3));

    EXPECT_TRUE(manager.createFilterSlot(1, "again", "t", "d", 9));

    EXPECT_THAT(storedSlots(), ElementsAre(2, 3, 1));
    EXPECT_EQ(storedRecord(1).name(), QStringLiteral("again"));
    EXPECT_EQ(storedRecord(1).hash().size(), 5);
    EXPECT_EQ(firstTap(storedRecord(2)), 6.0F);
}

TEST_F(FilterManagerTest, SlotCreatedAgainKeepsItsCoefficientsInMemory) {
    manager.createFilterSlot(1, "name", "", "", 0);
    manager.setFilterForSlot(1, design(5.0F), {bassControl()});
    manager.createFilterSlot(1, "again", "", "", 0);

    const processing::FilterSlot& slot = *manager.findSlot(1);
    EXPECT_EQ(slot.info.name, "again");
    ASSERT_EQ(slot.filters.size(), 2U);
    EXPECT_THAT(slot.filters[0].getFirTapsForCell(0), ElementsAre(5.0F));
    EXPECT_EQ(slot.bassControlFilters.size(), 1U);
}

TEST_F(FilterManagerTest, SlotCreatedAgainHasAsManyFiltersAsVariants) {
    manager.createFilterSlot(1, "name", "", "", 0);
    manager.setFilterForSlotLocal(1, {variant(1.0F), variant(2.0F), variant(3.0F)});
    manager.createFilterSlotLocal(1, "again", "", "", 0);
    EXPECT_EQ(manager.findSlot(1)->filters.size(), 2U);

    manager.setFilterForSlotLocal(1, {variant(1.0F)});
    manager.createFilterSlotLocal(1, "again", "", "", 0);
    EXPECT_EQ(manager.findSlot(1)->filters.size(), 2U);
    EXPECT_EQ(manager.findSlot(1)->filters[1].size(), 0U);
}

TEST_F(FilterManagerTest, SettingsAreReadFreshBeforeEachChange) {
    manager.createFilterSlot(1, "one", "", "", 0);
    store({recordOf(6, QStringLiteral("by another"))});
    manager.createFilterSlot(2, "two", "", "", 0);
    EXPECT_THAT(storedSlots(), ElementsAre(6, 2));
}

// Describing.

TEST_F(FilterManagerTest, InfoOfAnUnknownSlotIsOneEmptyRecord) {
    const processing::FilterSlotInfo& info = manager.getInfoForSlot(5);
    EXPECT_EQ(info.name, "");
    EXPECT_EQ(info.filterTypeName, "");
    EXPECT_EQ(info.description, "");
    EXPECT_EQ(info.creationTime, 0);
    EXPECT_EQ(&info, &manager.getInfoForSlot(-1));
    EXPECT_EQ(&info, &makeManager().getInfoForSlot(1000));
}

TEST_F(FilterManagerTest, UpdateReplacesTheTextsInPlace) {
    for (const int slot : {1, 2, 3})
        manager.createFilterSlot(slot, "name", "type", "text", 100 + slot);
    manager.setFilterForSlot(2, design(6.0F), {});
    manager.createFilterSlot(3, "name", "type", "text", 103);
    ASSERT_THAT(storedSlots(), ElementsAre(1, 2, 3));
    const VeskDiracSlot before = storedRecord(2);

    manager.updateSlot(2, "new name", "new type", "новый текст");

    EXPECT_EQ(manager.getInfoForSlot(2).name, "new name");
    EXPECT_EQ(manager.getInfoForSlot(2).filterTypeName, "new type");
    EXPECT_EQ(manager.getInfoForSlot(2).description, "новый текст");
    EXPECT_EQ(manager.getInfoForSlot(2).creationTime, 102);
    EXPECT_THAT(storedSlots(), ElementsAre(1, 2, 3));
    VeskDiracSlot expected = before;
    expected.setName(QStringLiteral("new name"));
    expected.setFilterTypeName(QStringLiteral("new type"));
    expected.setDescription(QString::fromUtf8("новый текст"));
    EXPECT_EQ(storedRecord(2), expected);
    EXPECT_EQ(storedRecord(1).name(), QStringLiteral("name"));
}

TEST_F(FilterManagerTest, UpdateChangesEveryRecordOfTheSlot) {
    manager.createFilterSlotLocal(1, "name", "", "", 0);
    store({recordOf(1, QStringLiteral("a")), recordOf(1, QStringLiteral("b"))});
    manager.updateSlot(1, "new", "", "");
    const QVariantList records = settings().slots_();
    ASSERT_EQ(records.size(), 2);
    EXPECT_EQ(VeskDiracSlot(records.at(0)).name(), QStringLiteral("new"));
    EXPECT_EQ(VeskDiracSlot(records.at(1)).name(), QStringLiteral("new"));
}

TEST_F(FilterManagerTest, UpdateOfAnUnknownSlotIsLoggedAndChangesNothing) {
    store({recordOf(4, QStringLiteral("stored only"))});
    const VeskDiracSlotsList before = settings();
    manager.updateSlot(4, "new", "new", "new");
    EXPECT_THAT(log.lines(), ElementsAre("ERROR Unable to update filter slot, not found: 4"));
    EXPECT_EQ(settings(), before);
    EXPECT_FALSE(manager.slotExists(4));
}

// Deleting.

TEST_F(FilterManagerTest, DeletingTheActiveSlotLeavesNoneActive) {
    manager.createFilterSlot(1, "one", "", "", 0);
    manager.createFilterSlot(2, "two", "", "", 0);
    manager.setActiveSlot(1);
    manager.deleteSlot(1);

    EXPECT_FALSE(manager.slotExists(1));
    EXPECT_EQ(manager.getActiveSlot(), -1);
    EXPECT_EQ(settings().activeSlot(), -1);
    EXPECT_THAT(storedSlots(), ElementsAre(2));
}

TEST_F(FilterManagerTest, DeletingAnotherSlotLeavesTheActiveOne) {
    manager.createFilterSlot(1, "one", "", "", 0);
    manager.createFilterSlot(2, "two", "", "", 0);
    manager.setActiveSlot(1);
    manager.deleteSlot(2);

    EXPECT_EQ(manager.getActiveSlot(), 1);
    EXPECT_EQ(settings().activeSlot(), 1);
    EXPECT_THAT(storedSlots(), ElementsAre(1));
}

TEST_F(FilterManagerTest, DeletingAnUnknownSlotIsSilent) {
    manager.createFilterSlotLocal(1, "one", "", "", 0);
    const VeskDiracSlotsList before = settings();
    manager.deleteSlot(5);
    EXPECT_EQ(settings(), before);
    EXPECT_TRUE(manager.slotExists(1));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(FilterManagerTest, DeletingASlotThatIsOnlyStoredRemovesItsRecord) {
    store({recordOf(5, QStringLiteral("five")), recordOf(6, QStringLiteral("six"))});
    manager.deleteSlot(5);
    EXPECT_THAT(storedSlots(), ElementsAre(6));
}

// Activating.

TEST_F(FilterManagerTest, ActiveSlotIsWrittenAndLogged) {
    manager.createFilterSlot(3, "three", "", "", 0);
    manager.setActiveSlot(3);
    EXPECT_EQ(manager.getActiveSlot(), 3);
    EXPECT_EQ(settings().activeSlot(), 3);
    EXPECT_THAT(log.lines(), ElementsAre("INFO Filter slot set to active: 3"));
}

TEST_F(FilterManagerTest, NegativeActiveSlotIsNoneAndIsNotWritten) {
    manager.createFilterSlot(3, "three", "", "", 0);
    manager.setActiveSlot(3);
    manager.setActiveSlot(-5);
    EXPECT_EQ(manager.getActiveSlot(), -1);
    EXPECT_EQ(settings().activeSlot(), 3);
    EXPECT_THAT(log.lines(), ElementsAre("INFO Filter slot set to active: 3"));
}

TEST_F(FilterManagerTest, UnknownActiveSlotIsLoggedAndLeavesTheSettings) {
    manager.createFilterSlot(1, "one", "", "", 0);
    manager.setActiveSlot(1);
    manager.setActiveSlot(3);
    EXPECT_EQ(manager.getActiveSlot(), -1);
    EXPECT_EQ(settings().activeSlot(), 1);
    EXPECT_THAT(log.lines(),
                Contains("ERROR FilterManager::setActiveSlot: Filter slot not found: 3"));
}

TEST_F(FilterManagerTest, NoSlotBecomesActiveWhileTheImageIsHeld) {
    manager.createFilterSlot(1, "one", "", "", 0);
    manager.createFilterSlot(2, "two", "", "", 0);
    manager.setActiveSlot(1);
    holdImage();
    manager.setActiveSlot(2);
    EXPECT_EQ(manager.getActiveSlot(), -1);
    EXPECT_EQ(settings().activeSlot(), 1);
    EXPECT_THAT(log.lines(),
                Contains("WARN SHM updates disabled by Dirac config, not setting filter index "
                         "from server"));
}

TEST_F(FilterManagerTest, HeldImageIsReportedBeforeAnUnknownSlot) {
    holdImage();
    manager.setActiveSlot(3);
    EXPECT_THAT(log.lines(), ElementsAre("WARN SHM updates disabled by Dirac config, not setting "
                                         "filter index from server"));
}

// Designs.

TEST_F(FilterManagerUploadTest, DesignIsStoredInMemoryAndInTheRecord) {
    manager.createFilterSlot(2, "two", "type", "text", 22);
    manager.setFilterForSlot(2, design(5.0F), {bassControl(), bassControl()});

    EXPECT_EQ(manager.findSlot(2)->filters.size(), 2U);
    EXPECT_EQ(manager.findSlot(2)->bassControlFilters.size(), 2U);
    const VeskDiracSlot record = storedRecord(2);
    EXPECT_EQ(record.size(), 2);
    EXPECT_EQ(record.params().size(), 2);
    EXPECT_EQ(record.bcParams().size(), 2);
    EXPECT_EQ(firstTap(record), 5.0F);
    EXPECT_EQ(record.name(), QStringLiteral("two"));
    EXPECT_EQ(record.filterTypeName(), QStringLiteral("type"));
    EXPECT_EQ(record.description(), QStringLiteral("text"));
    EXPECT_EQ(record.creationTime(), 22);
    EXPECT_THAT(log.lines(), IsEmpty()) << "nothing is logged on success";
}

TEST_F(FilterManagerUploadTest, SizeIsTheNumberOfVariantsWhateverTheCells) {
    manager.createFilterSlot(2, "two", "", "", 0);
    manager.setFilterForSlot(2, {variant(5.0F, 3), variant(6.0F, 3)}, {});
    const VeskDiracSlot record = storedRecord(2);
    EXPECT_EQ(record.size(), 2);
    ASSERT_EQ(record.params().size(), 2);
    EXPECT_EQ(record.params().at(0).toList().size(), 3);
    EXPECT_EQ(record.params().at(1).toList().size(), 3);
}

TEST_F(FilterManagerUploadTest, UploadedSlotMovesToTheEnd) {
    for (const int slot : {1, 2, 3})
        manager.createFilterSlot(slot, "name", "", "", 0);
    manager.setFilterForSlot(2, design(5.0F), {});
    EXPECT_THAT(storedSlots(), ElementsAre(1, 3, 2));
}

TEST_F(FilterManagerUploadTest, WithoutBassControlTheListIsEmpty) {
    manager.createFilterSlot(2, "two", "", "", 0);
    manager.setFilterForSlot(2, design(5.0F), {});
    EXPECT_TRUE(storedRecord(2).contains(VeskDiracSlot::BcParams()));
    EXPECT_TRUE(storedRecord(2).bcParams().isEmpty());
}

TEST_F(FilterManagerUploadTest, UnknownSlotIsLoggedAndNothingStored) {
    store({recordOf(4, QStringLiteral("stored only"))});
    const VeskDiracSlotsList before = settings();
    manager.setFilterForSlot(4, design(5.0F), {});
    EXPECT_THAT(log.lines(),
                ElementsAre("ERROR FilterManager::setFilterForSlot: Filter slot not found: 4"));
    EXPECT_EQ(settings(), before);
    EXPECT_FALSE(manager.slotExists(4));
}

TEST_F(FilterManagerUploadTest, LocalDesignIsNotWritten) {
    manager.createFilterSlot(2, "two", "", "", 0);
    const VeskDiracSlotsList before = settings();
    manager.setFilterForSlotLocal(2, design(5.0F));
    EXPECT_THAT(manager.findSlot(2)->filters[0].getFirTapsForCell(0), ElementsAre(5.0F));
    EXPECT_EQ(settings(), before);
}

TEST_F(FilterManagerUploadTest, LocalDesignOfAnUnknownSlotIsLoggedAlike) {
    manager.setFilterForSlotLocal(4, design(5.0F));
    EXPECT_THAT(log.lines(),
                ElementsAre("ERROR FilterManager::setFilterForSlot: Filter slot not found: 4"));
}

TEST_F(FilterManagerUploadTest, SlotWithoutARecordGetsOneWithTheDesignAlone) {
    manager.createFilterSlotLocal(2, "two", "", "", 22);
    manager.setFilterForSlot(2, design(5.0F), {});
    const QVariantList records = settings().slots_();
    ASSERT_EQ(records.size(), 1);
    EXPECT_EQ(VeskDiracSlot(records.at(0)).hash().size(), 3) << "params, bcParams and size";
}

TEST_F(FilterManagerUploadTest, CellWithoutWhatItsSectionCarriesThrowsAndIsNotWritten) {
    manager.createFilterSlot(2, "two", "", "", 0);
    const VeskDiracSlotsList before = settings();
    BassControlFilterCoefficients wrong = bassControl();
    wrong.setCoefficientsForCell({2, 0, 0}, {biquadFrom(1.0F)});

    EXPECT_THROW(manager.setFilterForSlot(2, design(5.0F), {wrong}), std::out_of_range);

    EXPECT_THAT(manager.findSlot(2)->filters[0].getFirTapsForCell(0), ElementsAre(5.0F))
        << "memory is updated already";
    EXPECT_EQ(settings(), before);
}

TEST_F(FilterManagerUploadTest, OtherSlotsKeepSharingTheirDesigns) {
    manager.createFilterSlot(1, "one", "", "", 0);
    manager.setFilterForSlot(1, design(5.0F), {});
    const auto tapsBefore = VeskDiracSlot(storedRecord(1)).params();
    manager.createFilterSlot(2, "two", "", "", 0);
    manager.updateSlot(1, "renamed", "", "");
    const auto tapsAfter = VeskDiracSlot(storedRecord(1)).params();
    EXPECT_TRUE(tapsAfter.isSharedWith(tapsBefore)) << "no tap is copied to change a name";
}

class FilterManagerUploadDeathTest : public FilterManagerTest {};

TEST_F(FilterManagerUploadDeathTest, BassControlWithoutSection4EndsTheProcess) {
    manager.createFilterSlot(2, "two", "", "", 0);
    BassControlFilterCoefficients wrong;
    wrong.setCoefficientsForCell({0, 0, 0}, {biquadFrom(1.0F)});
    EXPECT_DEATH(manager.setFilterForSlot(2, design(5.0F), {wrong}),
                 "\"sections.size\\(\\) == 5\" in file src/modules/dirac/common/FilterManager");
}

// Restarting.

TEST_F(FilterManagerReloadTest, SlotsAndActiveSlotSurviveARestart) {
    {
        FilterManager manager = makeManager();
        manager.createFilterSlot(1, "one", "", "", 11);
        manager.createFilterSlot(4, "четыре", "type", "text", 44);
        manager.setFilterForSlot(1, design(5.0F), {bassControl(), bassControl()});
        manager.setFilterForSlot(4, design(6.0F), {});
        manager.setActiveSlot(4);
        manager.enableProcessing(true, false);
    }
    const VeskDiracSlotsList before = settings();

    const FilterManager manager = makeManager();

    EXPECT_EQ(manager.getActiveSlot(), 4);
    EXPECT_TRUE(manager.isDelayAndGainProcessingEnabled());
    EXPECT_EQ(manager.getInfoForSlot(4).name, "четыре");
    EXPECT_EQ(manager.getInfoForSlot(4).filterTypeName, "type");
    EXPECT_EQ(manager.getInfoForSlot(4).description, "text");
    EXPECT_EQ(manager.getInfoForSlot(4).creationTime, 44);
    ASSERT_EQ(manager.findSlot(1)->filters.size(), 2U);
    EXPECT_THAT(manager.findSlot(1)->filters[1].getFirTapsForCell(1), ElementsAre(6.0F));
    EXPECT_THAT(manager.findSlot(1)->bassControlFilters, IsEmpty())
        << "bass control is not read back";
    EXPECT_EQ(settings(), before);
}

TEST_F(FilterManagerReloadTest, EachSlotIsTraced) {
    store({recordOf(1, QStringLiteral("one"), design(1.0F)),
           recordOf(2, QStringLiteral("two"), design(2.0F))});
    makeManager();
    EXPECT_THAT(log.lines(), ElementsAre("TRACE FilterManager: reloading slot 'one'",
                                         "TRACE FilterManager: reloading slot 'two'"));
}

TEST_F(FilterManagerReloadTest, RecordBeyondTheSlotsIsNotTakenOver) {
    store({recordOf(8, QStringLiteral("eight"), design(1.0F))});
    EXPECT_FALSE(makeManager().slotExists(8));
    EXPECT_THAT(log.lines(),
                ElementsAre("TRACE FilterManager: reloading slot 'eight'",
                            "ERROR FilterManager::setFilterForSlot: Filter slot not found: 8"));
    EXPECT_THAT(storedSlots(), ElementsAre(8));
}

TEST_F(FilterManagerReloadTest, SlotWithoutADesignIsTakenOver) {
    store({recordOf(1, QStringLiteral("one"))});
    const FilterManager manager = makeManager();
    ASSERT_TRUE(manager.slotExists(1));
    EXPECT_EQ(manager.findSlot(1)->filters.size(), 2U);
}

TEST_F(FilterManagerReloadTest, SettingsWithoutActiveSlotLeaveNoneActive) {
    VeskDiracSlotsList list = settings();
    list.setSlots_({recordOf(0, QStringLiteral("zero"))});
    list.remove(VeskDiracSlotsList::ActiveSlot());
    setSettings(list);

    EXPECT_EQ(makeManager().getActiveSlot(), -1);
    EXPECT_FALSE(settings().contains(VeskDiracSlotsList::ActiveSlot()));
}

TEST_F(FilterManagerReloadTest, StoredActiveSlotThatIsMissingLeavesNoneActive) {
    storeActiveSlot(3);
    EXPECT_EQ(makeManager().getActiveSlot(), -1);
    EXPECT_EQ(settings().activeSlot(), 3);
    EXPECT_THAT(log.lines(),
                ElementsAre("ERROR FilterManager::setActiveSlot: Filter slot not found: 3"));
}

TEST_F(FilterManagerReloadTest, DelayAndGainProcessingIsTakenOver) {
    VeskDiracSlotsList list = settings();
    list.setDelayGainEnabled(true);
    setSettings(list);
    EXPECT_TRUE(makeManager().isDelayAndGainProcessingEnabled());
}

TEST_F(FilterManagerReloadTest, MissingSettingsReadAsAnEmptyListAndAreWrittenAsSuch) {
    setValueAt(VeskDiracSlotsSettingsPath(), VeskValue());
    FilterManager manager = makeManager();
    EXPECT_EQ(manager.getActiveSlot(), -1);
    manager.deleteSlot(1);
    EXPECT_TRUE(settings().contains(VeskDiracSlotsList::Slots_()));
}

TEST_F(FilterManagerReloadDeathTest, FewerVariantListsThanVariantsEndTheProcess) {
    store({recordOf(1, QStringLiteral("one"), {variant(1.0F)})});
    EXPECT_DEATH(makeManager(), "index out of range");
}

TEST_F(FilterManagerReloadDeathTest, FewerCellsThanTheSizeEndTheProcess) {
    store({recordOf(1, QStringLiteral("one"), {variant(1.0F, 1), variant(2.0F, 1)})});
    EXPECT_DEATH(makeManager(), "index out of range");
}
