#include "sdk/cm/VeskPaths.h"
#include "support/DeviceFixture.h"

#include <QRegularExpression>
#include <gmock/gmock.h>

#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr const char* kCastWarning = "WARN Attempt to set filter slot during Google cast playback.";
constexpr const char* kNotPopulatedWarning =
    "WARN Attempt to set filter slot that is not populated! Ignoring request.";

/// A device whose slots 0, 2 and 5 are named A, C and F.
class DiracMenuTest : public DeviceFixture {
protected:
    static QList<VeskDiracSlot> someSlots() {
        return {slotRecord(0, QStringLiteral("A"), 10), slotRecord(2, QStringLiteral("C"), 12),
                slotRecord(5, QStringLiteral("F"), 15)};
    }

    void startWith(const VeskValue& stored) {
        description.numberOfSlots = 8;
        startPlatform();
        write(VeskDiracSlotsSettingsPath(), stored);
        constructWorker();
        settle();
    }

    void store(const VeskValue& value) {
        write(VeskDiracSlotsSettingsPath(), value);
        settle();
    }

    std::string choose(int idx) {
        const std::string error = write(VeskDiracActiveFilterPath(), VeskValue::ofI32(idx));
        settle();
        return error;
    }

    void setCast(bool active) { write(VeskTalvorCastActivePath(), VeskValue::ofBool(active)); }

    static int slotCount() { return valueAt(VeskTalvorCorbelDiracSlotsUpdatePath()).i32_(); }
};

const QString kDnsNamespace = QStringLiteral("6ba7b810-9dad-11d1-80b4-00c04fd430c8");

}  // namespace

// ---- Settings ----

TEST_F(DiracMenuTest, AnActiveSlotThatIsGoneFallsBackToTheLastInTheRuntimeSlots) {
    startWith(settingsOf(-1, {}));
    const VeskValue stored = settingsOf(3, someSlots());
    inWorkerThread([&] {
        CMRoot()->setValue(VeskDiracSlotsSettingsPath(), stored, {});
        QMetaObject::invokeMethod(&worker(), "on_slotsSettings_changes", Qt::DirectConnection,
                                  Q_ARG(VeskValue, stored));
        EXPECT_EQ(settings().activeSlot(), 3) << "the handler itself leaves the settings alone";
        EXPECT_EQ(menuSelection(), 5);
    });
    settle();
    EXPECT_EQ(runtimeSlots().activeSlot(), 5);
    EXPECT_THAT(slotIndices(runtimeSlots()), ElementsAre(0, 2, 5));
}

TEST_F(DiracMenuTest, OffStaysOff) {
    startWith(settingsOf(2, someSlots()));
    store(settingsOf(-1, someSlots()));
    EXPECT_EQ(runtimeSlots().activeSlot(), -1);
    EXPECT_EQ(menuSelection(), -1);
    EXPECT_TRUE(logged("DEBUG updateUiMenuNode: activeSlot: -1"));
}

TEST_F(DiracMenuTest, AnEmptyListLeavesOnlyOff) {
    startWith(settingsOf(2, someSlots()));
    store(settingsOf(2, {}));
    EXPECT_THAT(menuRows(), ElementsAre("off = -1"));
    EXPECT_EQ(slotCount(), 0);
    EXPECT_THAT(slotIndices(runtimeSlots()), IsEmpty());
}

TEST_F(DiracMenuTest, AListWithoutActiveSlotShowsOff) {
    startWith(settingsOf(std::nullopt, someSlots()));
    EXPECT_EQ(menuSelection(), -1);
    store(settingsOf(std::nullopt, {slotRecord(2, QStringLiteral("Other"))}));
    EXPECT_EQ(menuSelection(), -1);
}

TEST_F(DiracMenuTest, ShowsOneRowASlotInTheOrderOfTheList) {
    startWith(settingsOf(
        -1, {slotRecord(5, QStringLiteral("Sofa")), slotRecord(0, QStringLiteral("Table"))}));
    store(settingsOf(
        -1, {slotRecord(5, QStringLiteral("Couch")), slotRecord(0, QStringLiteral("Table"))}));
    EXPECT_THAT(menuRows(), ElementsAre("off = -1", "Filter: Couch = 5", "Filter: Table = 0"));
    EXPECT_EQ(slotCount(), 2);
}

TEST_F(DiracMenuTest, MarksItsRowsForTranslationAsChoices) {
    startWith(settingsOf(-1, {slotRecord(5, QStringLiteral("Sofa"))}));
    const auto rows = platform().tree().info(VeskDiracFilterSettingsPath())->rows;
    ASSERT_EQ(rows.size(), 2);
    const VeskRoles off(rows.at(0));
    EXPECT_EQ(off.type(), 101);
    EXPECT_EQ(off.title().source(), QStringLiteral("off"));
    EXPECT_EQ(off.title().context(), QStringLiteral("Dirac"));
    const VeskRoles filter(rows.at(1));
    EXPECT_EQ(filter.type(), 101);
    EXPECT_EQ(filter.title().source(), QStringLiteral("Filter: %1"));
    EXPECT_EQ(filter.title().arguments(), QStringList{QStringLiteral("Sofa")});
}

TEST_F(DiracMenuTest, OffersTheRowsAsChoicesOfTheSelection) {
    startWith(settingsOf(-1, {}));
    const auto node = platform().tree().info(VeskDiracActiveFilterPath());
    ASSERT_TRUE(node.has_value());
    EXPECT_EQ(node->title, QStringLiteral("Dirac"));
    EXPECT_EQ(node->choices, VeskDiracFilterSettingsPath());
}

// ---- A choice in the menu ----

TEST_F(DiracMenuTest, AChosenSlotIsStoredPublishedAndOn) {
    startWith(settingsOf(-1, someSlots()));
    EXPECT_EQ(choose(2), "");
    EXPECT_EQ(menuSelection(), 2);
    EXPECT_EQ(settings().activeSlot(), 2);
    EXPECT_TRUE(settings().filteringEnabled());
    EXPECT_EQ(runtimeSlots(), settings());
    EXPECT_EQ(worker().getActiveFilterIdx(), 2);
    EXPECT_TRUE(worker().getFilteringEnabled());
    EXPECT_TRUE(logged("INFO Active filter changed to 2"));
    EXPECT_EQ(ask(&Stub::GetActiveSlot, dio::endpoint::Void()).value(), 2);
}

TEST_F(DiracMenuTest, OffIsStoredAndSwitchesFilteringOff) {
    startWith(settingsOf(-1, someSlots()));
    choose(2);
    EXPECT_EQ(choose(-1), "");
    EXPECT_EQ(settings().activeSlot(), -1);
    EXPECT_FALSE(settings().filteringEnabled());
    EXPECT_EQ(runtimeSlots(), settings());
    EXPECT_EQ(ask(&Stub::GetActiveSlot, dio::endpoint::Void()).value(), -1);
}

TEST_F(DiracMenuTest, OffIsAcceptedWithoutSlots) {
    startWith(settingsOf(-1, {}));
    EXPECT_EQ(choose(-1), "");
    EXPECT_EQ(menuSelection(), -1);
}

TEST_F(DiracMenuTest, ASlotThatIsNotThereIsRefused) {
    startWith(settingsOf(0, someSlots()));
    EXPECT_EQ(choose(3), "Invalid filter ID");
    EXPECT_EQ(choose(-2), "Invalid filter ID");
    EXPECT_EQ(countLogged(kNotPopulatedWarning), 2U);
    EXPECT_EQ(menuSelection(), 0);
    EXPECT_EQ(settings().activeSlot(), 0);
}

TEST_F(DiracMenuTest, AChoiceThatIsNoIndexIsRefused) {
    startWith(settingsOf(2, someSlots()));
    EXPECT_EQ(write(VeskDiracActiveFilterPath(), VeskValue::ofString(QStringLiteral("A"))),
              "Invalid filter ID");
    EXPECT_EQ(menuSelection(), 2);
}

TEST_F(DiracMenuTest, AChoiceDuringACastSessionIsRefused) {
    startWith(settingsOf(0, someSlots()));
    setCast(true);
    EXPECT_EQ(choose(2), "Unable to set during Cast session");
    EXPECT_EQ(choose(3), "Unable to set during Cast session");
    EXPECT_EQ(countLogged(kCastWarning), 2U);
    EXPECT_EQ(menuSelection(), 0);
    EXPECT_EQ(settings().activeSlot(), 0);
    setCast(false);
    EXPECT_EQ(choose(2), "");
}

TEST_F(DiracMenuTest, AnActiveFilterChangeDuringACastSessionChangesNothing) {
    startWith(settingsOf(0, someSlots()));
    setCast(true);
    const VeskDiracSlotsList before = settings();
    callSlot("on_activeFilter_changed", VeskValue::ofI32(2));
    settle();
    EXPECT_EQ(countLogged(kCastWarning), 1U);
    EXPECT_EQ(settings(), before);
    EXPECT_EQ(worker().getActiveFilterIdx(), 0);
}

TEST_F(DiracMenuTest, AnActiveFilterThatIsNotThereSwitchesFilteringOff) {
    startWith(settingsOf(0, someSlots()));
    inWorkerThread([this] {
        QMetaObject::invokeMethod(&worker(), "on_activeFilter_changed", Qt::DirectConnection,
                                  Q_ARG(VeskValue, VeskValue::ofI32(4)));
        EXPECT_EQ(settings().activeSlot(), 4);
        EXPECT_FALSE(settings().filteringEnabled());
    });
}

// ---- The user and a client at once ----

TEST_F(DiracMenuTest, AChoiceLosesNoSlotThatAClientHasJustStored) {
    startDevice();
    transferFir(0, "First", {1.0F}, 1);
    settle();
    std::thread client([this] {
        for (int slot = 1; slot < 4; ++slot)
            transferFir(slot, "Slot " + std::to_string(slot), {0.5F}, slot + 1);
    });
    for (int i = 0; i < 40; ++i) {
        EXPECT_EQ(write(VeskDiracActiveFilterPath(), VeskValue::ofI32(i % 2 == 0 ? 0 : -1)), "");
        settle();
    }
    client.join();
    settle();
    EXPECT_THAT(slotIndices(settings()), testing::UnorderedElementsAre(0, 1, 2, 3));
    EXPECT_EQ(runtimeSlots(), settings());
}

TEST_F(DiracMenuTest, ASlotThatAClientHasChosenSinceWinsOverTheMenu) {
    startDevice();
    transferFir(0, "A", {1.0F}, 1);
    transferFir(1, "B", {0.5F}, 2);
    settle();
    inWorkerThread([this] {
        // The menu follows to A, and before the worker learns of that the client chooses B.
        VeskDiracSlotsList list = settings();
        list.setActiveSlot(0);
        QMetaObject::invokeMethod(&worker(), "on_slotsSettings_changes", Qt::DirectConnection,
                                  Q_ARG(VeskValue, VeskValue::of(list)));
        activate(1);
    });
    settle();
    EXPECT_EQ(settings().activeSlot(), 1);
    EXPECT_TRUE(settings().filteringEnabled());
    EXPECT_EQ(runtimeSlots(), settings());
    EXPECT_EQ(menuSelection(), 1);
    EXPECT_EQ(worker().getActiveFilterIdx(), 1);
}

TEST_F(DiracMenuTest, AChoiceSurvivesAChangeOfTheSettingsOnItsWay) {
    startWith(settingsOf(0, someSlots()));
    const auto reply = CMReply<QVariant>::create();
    inWorkerThread([&] {
        // The worker has both waiting: the choice of slot 2, then the report of a new name.
        CMRoot()->setValue(VeskDiracActiveFilterPath(), VeskValue::ofI32(2), reply);
        QList<VeskDiracSlot> renamed = someSlots();
        renamed[0].setName(QStringLiteral("Renamed"));
        CMRoot()->setValue(VeskDiracSlotsSettingsPath(), settingsOf(0, renamed), {});
    });
    settle();
    EXPECT_TRUE(reply.isFinished());
    EXPECT_EQ(menuSelection(), 2);
    EXPECT_EQ(settings().activeSlot(), 2);
    EXPECT_EQ(menuRows().at(1), "Filter: Renamed = 0");
}

TEST_F(DiracMenuTest, AChoiceThatACastSessionOvertakesGivesTheMenuBackToTheSettings) {
    startWith(settingsOf(0, someSlots()));
    inWorkerThread([&] {
        // The worker has all waiting: the choice of slot 2, a client's slot 5, the Cast session.
        CMRoot()->setValue(VeskDiracActiveFilterPath(), VeskValue::ofI32(2), {});
        CMRoot()->setValue(VeskDiracSlotsSettingsPath(), settingsOf(5, someSlots()), {});
        CMRoot()->setValue(VeskTalvorCastActivePath(), VeskValue::ofBool(true), {});
    });
    settle();
    EXPECT_TRUE(logged(kCastWarning));
    EXPECT_EQ(settings().activeSlot(), 5);
    EXPECT_EQ(menuSelection(), 5);
    setCast(false);
    EXPECT_EQ(choose(2), "");
    EXPECT_EQ(settings().activeSlot(), 2);
}

TEST_F(DiracMenuTest, AChoiceThatWasTakenBackHoldsNothingBack) {
    startWith(settingsOf(0, someSlots()));
    inWorkerThread([&] {
        // The worker has all waiting: the choice of slot 2, a change of the name, slot 0 again.
        CMRoot()->setValue(VeskDiracActiveFilterPath(), VeskValue::ofI32(2), {});
        QList<VeskDiracSlot> renamed = someSlots();
        renamed[0].setName(QStringLiteral("Renamed"));
        CMRoot()->setValue(VeskDiracSlotsSettingsPath(), settingsOf(0, renamed), {});
        CMRoot()->setValue(VeskDiracActiveFilterPath(), VeskValue::ofI32(0), {});
    });
    settle();
    setCast(true);
    CMRoot()->setValue(VeskDiracSlotsSettingsPath(), settingsOf(5, someSlots()), {});
    settle();
    EXPECT_EQ(menuSelection(), 5);
    EXPECT_EQ(settings().activeSlot(), 5);
}

TEST_F(DiracMenuTest, AChoiceSurvivesACallOfItsHandlerWithAnotherSlot) {
    startWith(settingsOf(0, someSlots()));
    inWorkerThread([&] {
        // The worker has all waiting: the choice of slot 2, the call with 5, a change of the name.
        CMRoot()->setValue(VeskDiracActiveFilterPath(), VeskValue::ofI32(2), {});
        QMetaObject::invokeMethod(&worker(), "on_activeFilter_changed", Qt::QueuedConnection,
                                  Q_ARG(VeskValue, VeskValue::ofI32(5)));
        QList<VeskDiracSlot> renamed = someSlots();
        renamed[0].setName(QStringLiteral("Renamed"));
        CMRoot()->setValue(VeskDiracSlotsSettingsPath(), settingsOf(0, renamed), {});
    });
    settle();
    EXPECT_EQ(menuSelection(), 2);
    EXPECT_EQ(settings().activeSlot(), 2);
    EXPECT_EQ(runtimeSlots().activeSlot(), 2);
}

TEST_F(DiracMenuTest, AChoiceOfWhatTheMenuJustLeftCounts) {
    startWith(settingsOf(0, someSlots()));
    const auto reply = CMReply<QVariant>::create();
    inWorkerThread([&] {
        // The worker has both waiting: a client's slot 2, then the user's choice of slot 0 again.
        CMRoot()->setValue(VeskDiracSlotsSettingsPath(), settingsOf(2, someSlots()), {});
        CMRoot()->setValue(VeskDiracActiveFilterPath(), VeskValue::ofI32(0), reply);
    });
    settle();
    EXPECT_TRUE(reply.isFinished());
    EXPECT_EQ(menuSelection(), 0);
    EXPECT_EQ(settings().activeSlot(), 0);
    EXPECT_EQ(runtimeSlots().activeSlot(), 0);
}

TEST_F(DiracMenuTest, ABurstOfActivationsEndsWithTheLastOneEverywhere) {
    startDevice();
    transferFir(0, "A", {1.0F}, 1);
    transferFir(1, "B", {0.5F}, 2);
    for (int i = 0; i < 301; ++i)
        activate(i % 2);
    settle();
    EXPECT_EQ(settings().activeSlot(), 0);
    EXPECT_TRUE(settings().filteringEnabled());
    EXPECT_EQ(runtimeSlots(), settings());
    EXPECT_EQ(menuSelection(), 0);
    EXPECT_EQ(segmentTaps(0, 1), std::vector<float>{1.0F});
    EXPECT_EQ(image().bypass, 0);
    EXPECT_EQ(ask(&Stub::GetActiveSlot, dio::endpoint::Void()).value(), 0);
}

// ---- UUID ----

TEST(GenerateUuid5Test, AgreesWithThePublishedExample) {
    EXPECT_EQ(Dirac::generateUuid5(kDnsNamespace, QStringLiteral("www.example.com")),
              QStringLiteral("2ed6657d-e927-568b-95e1-2665a8aea6a2"));
}

TEST(GenerateUuid5Test, IsAVersion5UuidWithoutBraces) {
    const QRegularExpression shape(
        QStringLiteral("^[0-9a-f]{8}-[0-9a-f]{4}-5[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}$"));
    for (int i = 0; i < 64; ++i) {
        const QString uuid = Dirac::generateUuid5(kDnsNamespace, QString::number(i));
        EXPECT_EQ(uuid.size(), 36);
        EXPECT_TRUE(shape.match(uuid).hasMatch()) << uuid.toStdString();
    }
}

TEST(GenerateUuid5Test, TakesANamespaceThatIsNoUuidForTheNullUuid) {
    EXPECT_EQ(Dirac::generateUuid5(QStringLiteral("nonsense"), QStringLiteral("x")),
              QStringLiteral("f3e951bb-a80b-5e6c-a038-a56ee0caa25d"));
}

TEST(SlotPopulatedTest, FindsASlotByItsIndexOnly) {
    const VeskDiracSlotsList list =
        settingsOf(7, {slotRecord(3, QStringLiteral("A"))}).diracSlotsList();
    EXPECT_TRUE(Dirac::slotPopulated(list, 3));
    EXPECT_FALSE(Dirac::slotPopulated(list, 0));
    EXPECT_FALSE(Dirac::slotPopulated(list, 7));
}
