#include "sdk/records/VeskDiracRecords.h"
#include "sdk/records/VeskPlayerRecords.h"
#include "sdk/records/VeskPowerManagerRecords.h"
#include "sdk/records/VeskRoles.h"
#include "sdk/records/VeskValue.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <sstream>

namespace {

QVariantList manyDoubles(int count) {
    QVariantList list;
    for (int i = 0; i < count; ++i)
        list.append(i / 7.0);
    return list;
}

VeskDiracSlotsList slotsWithTaps(const QVariantList& taps) {
    VeskDiracFiirParams fiir;
    fiir.setTaps(taps);
    VeskDiracChannelParams channel;
    channel.setFiir(fiir);
    VeskDiracSlot slot;
    slot.setSlotIdx(0);
    slot.setParams({QVariant(QVariantList{QVariant(channel)})});
    VeskDiracSlotsList list;
    list.setSlots_({QVariant(slot)});
    return list;
}

QVariantList tapsOf(const VeskDiracSlotsList& list) {
    const VeskDiracSlot slot(list.slots_()[0]);
    const VeskDiracChannelParams channel(slot.params()[0].toList()[0]);
    return channel.fiir().taps();
}

/// Whether both lists are one block of memory.
bool share(const QVariantList& a, const QVariantList& b) {
    return a.isSharedWith(b);
}

std::string text(const VeskHash& hash) {
    std::ostringstream out;
    out << hash;
    return out.str();
}

VeskHash hashOf(const QVariant& content) {
    VeskHash hash;
    hash.insert(QStringLiteral("key"), content);
    return hash;
}

TEST(RecordsTest, MissingFieldsReadAsZero) {
    const VeskDiracSlot slot;
    EXPECT_EQ(slot.slotIdx(), 0);
    EXPECT_TRUE(slot.name().isEmpty());
    EXPECT_EQ(slot.creationTime(), 0);
    EXPECT_TRUE(slot.params().isEmpty());
    const VeskDiracConfig config;
    EXPECT_EQ(config.numberOfSlots(), 0U);
    EXPECT_FALSE(config.disableShmUpdate());
    EXPECT_FALSE(config.contains(VeskDiracConfig::StimuliChannels()));
    EXPECT_EQ(VeskDiracLinearParams().gain(), 0.0);
    EXPECT_TRUE(VeskDiracChannelParams().fiir().taps().isEmpty());
    EXPECT_EQ(VeskPlayLogicData().state(), VeskPlayLogicState::Stopped);
    EXPECT_EQ(VeskValue().i32_(), 0);
    EXPECT_TRUE(VeskValue().diracSlotsList().isEmpty());
}

TEST(RecordsTest, FieldsOfWrongTypeReadAsZero) {
    VeskDiracConfig config;
    config.insert(VeskDiracConfig::Speakers(), QStringLiteral("text"));
    config.insert(VeskDiracConfig::IpcKey(), QStringLiteral("text"));
    EXPECT_TRUE(config.speakers().isEmpty());
    EXPECT_EQ(config.ipcKey(), 0);
}

TEST(RecordsTest, FieldsComeBack) {
    VeskDiracSlot slot;
    slot.setSlotIdx(-1);
    slot.setName(QStringLiteral("Sofa"));
    slot.setCreationTime(std::numeric_limits<qint64>::max());
    EXPECT_EQ(slot.slotIdx(), -1);
    EXPECT_EQ(slot.name(), QStringLiteral("Sofa"));
    EXPECT_EQ(slot.creationTime(), std::numeric_limits<qint64>::max());
}

TEST(RecordsTest, EnumerationsAreKeptAsIntegers) {
    VeskPlayLogicData data;
    data.setState(VeskPlayLogicState::Paused);
    EXPECT_EQ(data.value(VeskPlayLogicData::State()), QVariant(3));
    EXPECT_EQ(data.state(), VeskPlayLogicState::Paused);
}

TEST(RecordsTest, NestedRecordsComeBack) {
    VeskMetaData metaData;
    metaData.setServiceID(QStringLiteral("radio"));
    VeskMediaData mediaData;
    mediaData.setMetaData(metaData);
    VeskRoles roles;
    roles.setMediaData(mediaData);
    VeskPlayLogicData data;
    data.setMediaRoles(roles);
    EXPECT_EQ(data.mediaRoles().mediaData().metaData().serviceID(), QStringLiteral("radio"));
}

TEST(RecordsTest, RecordsPassThroughVariants) {
    const VeskDiracSlotsList list = slotsWithTaps({1.0, 2.0});
    const QVariant variant = list;
    EXPECT_EQ(VeskDiracSlotsList(variant), list);
    EXPECT_TRUE(VeskDiracSlotsList(QVariant(5)).isEmpty());
}

TEST(RecordsTest, ValueHoldsItsContentUnderTheNameOfItsType) {
    EXPECT_EQ(VeskValue::ofI32(4).value(QStringLiteral("i32_")), QVariant(4));
    EXPECT_EQ(VeskValue::ofBool(true).bool_(), true);
    EXPECT_EQ(VeskValue::ofDouble(0.5).double_(), 0.5);
    EXPECT_EQ(VeskValue::ofString(QStringLiteral("a")).string(), QStringLiteral("a"));
    VeskDiracConfig config;
    config.setIpcKey(3);
    EXPECT_EQ(VeskValue::of(config).diracConfig(), config);
}

TEST(RecordsTest, EditLeadsToItsChoices) {
    VeskEdit edit;
    edit.setType(1);
    edit.setEnumPath(CMPath(QStringLiteral("a/b")));
    EXPECT_EQ(edit.type(), 1);
    EXPECT_EQ(edit.enumPath(), CMPath(QStringLiteral("a/b")));
}

TEST(RecordsTest, CopiesShareTheirContent) {
    const VeskDiracSlotsList list = slotsWithTaps(manyDoubles(1000));
    const VeskDiracSlotsList copy = list;  // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_TRUE(share(tapsOf(copy), tapsOf(list)));
    EXPECT_TRUE(share(tapsOf(VeskValue::of(list).diracSlotsList()), tapsOf(list)));
}

TEST(RecordsTest, ChangingASlotsNameKeepsItsTapsShared) {
    const VeskDiracSlotsList before = slotsWithTaps(manyDoubles(1000));
    VeskDiracSlotsList after = before;
    QVariantList slotRecords = after.slots_();
    VeskDiracSlot slot(slotRecords[0]);
    slot.setName(QStringLiteral("Renamed"));
    slotRecords[0] = QVariant(slot);
    after.setSlots_(slotRecords);
    EXPECT_NE(after, before);
    EXPECT_EQ(VeskDiracSlot(after.slots_()[0]).name(), QStringLiteral("Renamed"));
    EXPECT_TRUE(share(tapsOf(after), tapsOf(before)));
}

TEST(RecordsTest, ChangingACopyLeavesTheOriginal) {
    VeskDiracSlot slot;
    slot.setName(QStringLiteral("a"));
    VeskDiracSlot copy = slot;
    copy.setName(QStringLiteral("b"));
    EXPECT_EQ(slot.name(), QStringLiteral("a"));
}

TEST(RecordsTest, EqualContentIsEqualAlsoWhenItIsNotShared) {
    EXPECT_EQ(slotsWithTaps(manyDoubles(100)), slotsWithTaps(manyDoubles(100)));
    EXPECT_NE(slotsWithTaps(manyDoubles(100)), slotsWithTaps(manyDoubles(99)));
}

TEST(RecordsTest, NumbersAreEqualWhenTheirBitsAre) {
    EXPECT_NE(hashOf(1.0), hashOf(std::nextafter(1.0, 2.0)));
    EXPECT_NE(hashOf(QVariantList{1.0}), hashOf(QVariantList{std::nextafter(1.0, 2.0)}));
    EXPECT_NE(hashOf(0.0), hashOf(-0.0));
    EXPECT_EQ(hashOf(std::nan("")), hashOf(std::nan("")));
    EXPECT_EQ(hashOf(0.5), hashOf(0.5F));
}

TEST(RecordsTest, IntegersAreEqualAcrossWidths) {
    EXPECT_EQ(hashOf(5), hashOf(5LL));
    EXPECT_EQ(hashOf(5U), hashOf(5));
    EXPECT_NE(hashOf(5), hashOf(6LL));
    EXPECT_NE(hashOf(-1), hashOf(std::numeric_limits<unsigned>::max()));
    EXPECT_NE(hashOf(-1LL), hashOf(std::numeric_limits<qulonglong>::max()));
}

TEST(RecordsTest, OtherTypesAreNotEqualAcrossTypes) {
    EXPECT_NE(hashOf(5), hashOf(5.0));
    EXPECT_NE(hashOf(5), hashOf(QStringLiteral("5")));
    EXPECT_NE(hashOf(1), hashOf(true));
    EXPECT_NE(hashOf(QVariant()), hashOf(0));
    EXPECT_EQ(hashOf(QVariant()), hashOf(QVariant()));
}

TEST(RecordsTest, MissingKeyDiffersFromEmptyValue) {
    EXPECT_NE(hashOf(QVariant()), VeskHash());
    VeskHash other;
    other.insert(QStringLiteral("other"), QVariant());
    EXPECT_NE(hashOf(QVariant()), other);
}

TEST(RecordsTest, PrintedRecordIsOneLineOfJsonWithSortedKeys) {
    VeskHash hash;
    hash.insert(QStringLiteral("zero"), 0);
    hash.insert(QStringLiteral("alpha"), true);
    hash.insert(QStringLiteral("text"), QStringLiteral("a \"b\" \\ \n ü"));
    hash.insert(QStringLiteral("list"), QVariantList{1, QVariantHash{{QStringLiteral("x"), -2}}});
    hash.insert(QStringLiteral("none"), QVariant());
    EXPECT_EQ(text(hash), R"({"alpha": true, "list": [1, {"x": -2}], "none": null, )"
                          R"("text": "a \"b\" \\ \u000a ü", "zero": 0})");
}

TEST(RecordsTest, PrintedEmptyRecordIsEmptyBraces) {
    EXPECT_EQ(text({}), "{}");
}

TEST(RecordsTest, PrintedDoubleIsShortestThatReadsBack) {
    EXPECT_EQ(text(hashOf(0.1)), R"({"key": 0.1})");
    EXPECT_EQ(text(hashOf(1e300)), R"({"key": 1e+300})");
    EXPECT_EQ(text(hashOf(-12.5F)), R"({"key": -12.5})");
}

TEST(RecordsTest, PrintedLongNumericListIsItsLength) {
    EXPECT_EQ(text(hashOf(manyDoubles(1000))), R"({"key": [1000 values]})");
    EXPECT_EQ(text(hashOf(manyDoubles(17))), R"({"key": [17 values]})");
}

TEST(RecordsTest, PrintedListOfSixteenNumbersOrOfTextsIsWhole) {
    QVariantList numbers;
    QVariantList texts;
    for (int i = 0; i < 16; ++i)
        numbers.append(7);
    for (int i = 0; i < 17; ++i)
        texts.append(QStringLiteral("t"));
    EXPECT_EQ(text(hashOf(numbers)).find("values"), std::string::npos);
    EXPECT_EQ(text(hashOf(texts)).find("values"), std::string::npos);
}

}  // namespace
