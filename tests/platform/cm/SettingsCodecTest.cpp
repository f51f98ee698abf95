#include "platform/cm/SettingsCodec.h"

#include <QUrl>
#include <gmock/gmock.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>

using platform::decodeSetting;
using platform::encodeSetting;

namespace {

VeskValue valueOf(const QVariant& content) {
    VeskValue value;
    value.insert(QStringLiteral("key"), content);
    return value;
}

QVariant roundTrip(const QVariant& content) {
    return decodeSetting(encodeSetting(valueOf(content))).value(QStringLiteral("key"));
}

std::uint64_t bitsOf(double number) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &number, sizeof bits);
    return bits;
}

class DoubleTest : public testing::TestWithParam<double> {};

TEST_P(DoubleTest, ComesBackBitByBit) {
    const QVariant back = roundTrip(GetParam());
    EXPECT_EQ(back.userType(), QMetaType::Double);
    EXPECT_EQ(bitsOf(back.toDouble()), bitsOf(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(
    SettingsCodec, DoubleTest,
    testing::Values(0.0, -0.0, 1.0, 0.1, -1.0 / 3, static_cast<double>(0.1F), 16777217.0, 1e300,
                    std::numeric_limits<double>::denorm_min(), std::numeric_limits<double>::max(),
                    static_cast<double>(std::numeric_limits<float>::denorm_min()),
                    std::numeric_limits<double>::infinity(),
                    -std::numeric_limits<double>::infinity(), std::nan(""), std::nan("1234")));

TEST(SettingsCodecTest, FloatsTakeHalfTheSpace) {
    EXPECT_EQ(encodeSetting(valueOf(0.1)).size() -
                  encodeSetting(valueOf(static_cast<double>(0.1F))).size(),
              4);
}

TEST(SettingsCodecTest, IntegersKeepTheirValue) {
    EXPECT_EQ(roundTrip(0), QVariant(0));
    EXPECT_EQ(roundTrip(std::numeric_limits<int>::min()),
              QVariant(std::numeric_limits<int>::min()));
    EXPECT_EQ(roundTrip(4000000000U), QVariant(4000000000U));
    EXPECT_EQ(roundTrip(std::numeric_limits<qlonglong>::min()),
              QVariant(std::numeric_limits<qlonglong>::min()));
    EXPECT_EQ(roundTrip(std::numeric_limits<qlonglong>::max()),
              QVariant(std::numeric_limits<qlonglong>::max()));
}

TEST(SettingsCodecTest, OtherTypesComeBack) {
    EXPECT_EQ(roundTrip(true), QVariant(true));
    EXPECT_EQ(roundTrip(QStringLiteral("Grün \U0001F3B5")),
              QVariant(QStringLiteral("Grün \U0001F3B5")));
    EXPECT_EQ(roundTrip(QString()), QVariant(QString()));
    EXPECT_EQ(roundTrip(QByteArray("\0\xff", 2)), QVariant(QByteArray("\0\xff", 2)));
    EXPECT_FALSE(roundTrip(QVariant()).isValid());
    EXPECT_EQ(roundTrip(QStringList{QStringLiteral("a"), QStringLiteral("b")}).toStringList(),
              (QStringList{QStringLiteral("a"), QStringLiteral("b")}));
}

TEST(SettingsCodecTest, MapsAndListsAreHashesAndListsAtEachDepth) {
    const QVariantMap map{{QStringLiteral("inner"), QVariantList{QVariantMap{}}}};
    const QVariant back = roundTrip(QVariantList{map, QVariantList{}});
    ASSERT_EQ(back.userType(), QMetaType::QVariantList);
    ASSERT_EQ(back.toList()[0].userType(), QMetaType::QVariantHash);
    const QVariant inner = back.toList()[0].toHash()[QStringLiteral("inner")];
    ASSERT_EQ(inner.userType(), QMetaType::QVariantList);
    EXPECT_EQ(inner.toList()[0].userType(), QMetaType::QVariantHash);
    EXPECT_EQ(back.toList()[1].userType(), QMetaType::QVariantList);
}

TEST(SettingsCodecTest, SlotsComeBackEqual) {
    VeskDiracFiirParams fiir;
    fiir.setEnabled(true);
    fiir.setTaps({0.5, static_cast<double>(0.1F), -1e-30});
    VeskDiracChannelParams channel;
    channel.setFiir(fiir);
    VeskDiracSlot slot;
    slot.setSlotIdx(3);
    slot.setName(QStringLiteral("Sofa"));
    slot.setCreationTime(1700000000000);
    slot.setParams({QVariant(QVariantList{QVariant(channel)})});
    VeskDiracSlotsList list;
    list.setActiveSlot(-1);
    list.setSlots_({QVariant(slot)});
    list.setFilteringEnabled(true);
    EXPECT_EQ(decodeSetting(encodeSetting(VeskValue::of(list))), VeskValue::of(list));
}

TEST(SettingsCodecTest, EmptyRecordComesBack) {
    EXPECT_TRUE(decodeSetting(encodeSetting({})).isEmpty());
}

TEST(SettingsCodecTest, TypeThatCouldNotBeReadBackIsRefused) {
    EXPECT_THROW(encodeSetting(valueOf(QUrl(QStringLiteral("http://a")))), std::runtime_error);
}

TEST(SettingsCodecTest, EndlessNestingIsRefused) {
    QVariant nested = 1;
    for (int i = 0; i < 100; ++i)
        nested = QVariantList{nested};
    EXPECT_THROW(encodeSetting(valueOf(nested)), std::runtime_error);
}

TEST(SettingsCodecTest, EachTruncationIsRefused) {
    const QByteArray bytes = encodeSetting(valueOf(QVariantList{1.5, QStringLiteral("text")}));
    for (int size = 0; size < bytes.size(); ++size)
        EXPECT_THROW(decodeSetting(bytes.left(size)), std::runtime_error) << size;
}

TEST(SettingsCodecTest, MoreThanOneValueIsRefused) {
    EXPECT_THROW(decodeSetting(encodeSetting({}) + '\x01'), std::runtime_error);
}

TEST(SettingsCodecTest, ContentThatIsNoRecordIsRefused) {
    EXPECT_THROW(decodeSetting("\x01"), std::runtime_error);
    EXPECT_THROW(decodeSetting("\x80"), std::runtime_error);
    EXPECT_THROW(decodeSetting("\xa1\x01\x01"), std::runtime_error);
}

TEST(SettingsCodecTest, ListThatOnlyClaimsToBeHugeIsRefused) {
    EXPECT_THROW(decodeSetting(QByteArray("\xa1\x61\x61\x9b\x7f\xff\xff\xff\xff\xff\xff\xff", 12)),
                 std::runtime_error);
}

}  // namespace
