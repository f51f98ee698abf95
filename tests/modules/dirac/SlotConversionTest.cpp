#include "modules/dirac/SlotConversion.h"

#include <gmock/gmock.h>

#include <cmath>
#include <cstring>
#include <limits>

using testing::Optional;

namespace {

QVariantList numbers(int count, double first = 1.0) {
    QVariantList list;
    for (int i = 0; i < count; ++i)
        list.append(first + i);
    return list;
}

QVariant parallelBiquad(double first) {
    VeskDiracPiirBiquad biquad;
    biquad.setA1(first);
    biquad.setA2(first + 1);
    biquad.setB0(first + 2);
    biquad.setB1(first + 3);
    return biquad;
}

QVariant biquad(double first) {
    VeskDiracIirBiquad record;
    record.setA1(first);
    record.setA2(first + 1);
    record.setB0(first + 2);
    record.setB1(first + 3);
    record.setB2(first + 4);
    return record;
}

QVariantList repeated(const QVariant& element, int count) {
    QVariantList list;
    for (int i = 0; i < count; ++i)
        list.append(element);
    return list;
}

VeskDiracFiirParams fiir(const QVariantList& taps, const QVariantList& biquads) {
    VeskDiracFiirParams record;
    record.setEnabled(true);
    record.setTaps(taps);
    record.setTapSize(taps.size());
    record.setBiquads(biquads);
    record.setBiquadSize(biquads.size());
    return record;
}

VeskDiracChannelParams channel(const VeskDiracFiirParams& filter) {
    VeskDiracChannelParams record;
    record.setFiir(filter);
    return record;
}

VeskDiracChannelParams channelWithTaps(const QVariantList& taps) {
    return channel(fiir(taps, {}));
}

/// A slot whose groups are the lists of channels.
VeskDiracSlot slotOf(const QList<QVariantList>& groups) {
    QVariantList params;
    for (const QVariantList& channels : groups)
        params.append(QVariant(channels));
    VeskDiracSlot slot;
    slot.setParams(params);
    return slot;
}

VeskDiracSlot slotWithBassControl(const QList<QVariantList>& blocks) {
    QVariantList params;
    for (const QVariantList& sections : blocks)
        params.append(QVariant(sections));
    VeskDiracSlot slot;
    slot.setBcParams(params);
    return slot;
}

VeskDiracBcCells cell(const QVariantList& iirs, double delay, double gain) {
    VeskDiracBcCells record;
    record.setIirs(iirs);
    record.setNumIirs(iirs.size());
    record.setDelay(delay);
    record.setGain(gain);
    return record;
}

VeskDiracBcParams section(int type, const QVariantList& cells) {
    VeskDiracBcParams record;
    record.setType(type);
    record.setCells(cells);
    record.setNumCells(cells.size());
    return record;
}

DiracConfiguration converted(const VeskDiracSlot& slot) {
    DiracConfiguration configuration;
    EXPECT_EQ(convertSlot(slot, configuration), std::nullopt);
    return configuration;
}

DiracBassControlCell delayGainCell(double delay, double gain) {
    return converted(slotWithBassControl({{section(1, {cell({}, delay, gain)})}}))
        .bassControl[0][0]
        .cells[0];
}

template <typename T>
bool isSame(const T& a, const T& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

/// An image in the middle of memory that must not change.
class GuardedImage {
public:
    GuardedImage() { std::memset(&memory_, kGuard, sizeof memory_); }

    DiracConfiguration& image() { return *new (&memory_.image) DiracConfiguration; }

    bool isIntact() const {
        const auto isGuard = [](unsigned char byte) { return byte == kGuard; };
        return std::all_of(memory_.before.begin(), memory_.before.end(), isGuard) &&
               std::all_of(memory_.after.begin(), memory_.after.end(), isGuard);
    }

private:
    static constexpr unsigned char kGuard = 0xA5;
    struct Memory {
        std::array<unsigned char, 65536> before;
        alignas(DiracConfiguration) std::array<unsigned char, sizeof(DiracConfiguration)> image;
        std::array<unsigned char, 65536> after;
    };
    Memory memory_;
};

/// What does not fit, with a check that nothing around the image was touched.
std::optional<std::string> excessOf(const VeskDiracSlot& slot) {
    const auto guarded = std::make_unique<GuardedImage>();
    DiracConfiguration& image = guarded->image();
    auto excess = convertSlot(slot, image);
    EXPECT_TRUE(guarded->isIntact());
    return excess;
}

}  // namespace

TEST(SlotConversionTest, EmptySlotLeavesTheDefaultImage) {
    EXPECT_TRUE(isSame(converted(VeskDiracSlot()), DiracConfiguration()));
}

TEST(SlotConversionTest, OneGroupOfTwoChannelsFillsTwoRecords) {
    const DiracConfiguration image =
        converted(slotOf({{channelWithTaps(numbers(2, 10.0)), channelWithTaps(numbers(2, 20.0))}}));

    EXPECT_EQ(image.groups[0][0].taps[0], 10.0F);
    EXPECT_EQ(image.groups[0][1].taps[0], 20.0F);
    const DiracChannelFilter unfilled;
    for (std::size_t number = 2; number < 10; ++number)
        EXPECT_TRUE(isSame(image.groups[0][number], unfilled)) << number;
    for (const DiracChannelFilter& record : image.groups[1])
        EXPECT_TRUE(isSame(record, unfilled));
}

TEST(SlotConversionTest, GroupsFillTheirRecordsInOrder) {
    const DiracConfiguration image =
        converted(slotOf({{channelWithTaps(numbers(1, 10.0))},
                          {channelWithTaps(numbers(1, 20.0)), channelWithTaps(numbers(1, 21.0))}}));
    EXPECT_EQ(image.groups[0][0].taps[0], 10.0F);
    EXPECT_EQ(image.groups[1][0].taps[0], 20.0F);
    EXPECT_EQ(image.groups[1][1].taps[0], 21.0F);
}

TEST(SlotConversionTest, ThreeTapsLeaveTheRestOfTheDefault) {
    const DiracChannelFilter record =
        converted(slotOf({{channelWithTaps({0.5, -0.25, 0.1})}})).groups[0][0];

    EXPECT_EQ(record.filterEnabled, 1U);
    EXPECT_EQ(record.tapCount, 3U);
    EXPECT_EQ(record.biquadCount, 0U);
    EXPECT_EQ(record.taps[0], 0.5F);
    EXPECT_EQ(record.taps[1], -0.25F);
    EXPECT_EQ(record.taps[2], 0.1F);
    for (std::size_t tap = 3; tap < record.taps.size(); ++tap)
        ASSERT_EQ(record.taps[tap], 0.0F);
}

TEST(SlotConversionTest, TapsMayBeOfAnyNumericType) {
    const DiracChannelFilter record =
        converted(slotOf({{channelWithTaps({2, 0.5F, QStringLiteral("0.25")})}})).groups[0][0];
    EXPECT_EQ(record.taps[0], 2.0F);
    EXPECT_EQ(record.taps[1], 0.5F);
    EXPECT_EQ(record.taps[2], 0.25F);
}

TEST(SlotConversionTest, BiquadsKeepTheirOrderAndRoles) {
    const DiracChannelFilter record =
        converted(slotOf({{channel(fiir({}, {parallelBiquad(1.0), parallelBiquad(10.0)}))}}))
            .groups[0][0];
    EXPECT_EQ(record.tapCount, 0U);
    EXPECT_EQ(record.biquadCount, 2U);
    EXPECT_EQ(record.biquads[1].a1, 10.0F);
    EXPECT_EQ(record.biquads[1].a2, 11.0F);
    EXPECT_EQ(record.biquads[1].b0, 12.0F);
    EXPECT_EQ(record.biquads[1].b1, 13.0F);
    EXPECT_EQ(record.biquads[2].a1, 0.0F);
    EXPECT_EQ(record.taps[0], 1.0F) << "the unit impulse of the default";
}

TEST(SlotConversionTest, LinearPartIsCopied) {
    VeskDiracLinearParams linear;
    linear.setEnabled(true);
    linear.setDelay(1.5);
    linear.setGain(-6.25);
    VeskDiracChannelParams params;
    params.setLinear(linear);

    const DiracChannelFilter record = converted(slotOf({{params}})).groups[0][0];
    EXPECT_EQ(record.filterEnabled, 0U);
    EXPECT_EQ(record.linearEnabled, 1U);
    EXPECT_EQ(record.delay, 1.5F);
    EXPECT_EQ(record.gain, -6.25F);
}

TEST(SlotConversionTest, DisabledChannelOverwritesTheDefault) {
    const DiracChannelFilter record = converted(slotOf({{VeskDiracChannelParams()}})).groups[0][0];
    EXPECT_EQ(record.filterEnabled, 0U);
    EXPECT_EQ(record.tapCount, 0U);
    EXPECT_EQ(record.linearEnabled, 0U);
    EXPECT_EQ(record.gain, 0.0F) << "the record has no gain";
}

TEST(SlotConversionTest, ListsLongerThanTheirCountsAreCutToIt) {
    VeskDiracFiirParams filter = fiir(numbers(5), repeated(parallelBiquad(1.0), 3));
    filter.setTapSize(2);
    filter.setBiquadSize(1);
    const DiracChannelFilter record = converted(slotOf({{channel(filter)}})).groups[0][0];
    EXPECT_EQ(record.tapCount, 2U);
    EXPECT_EQ(record.taps[1], 2.0F);
    EXPECT_EQ(record.taps[2], 0.0F);
    EXPECT_EQ(record.biquads[0].a1, 1.0F);
    EXPECT_EQ(record.biquads[1].a1, 0.0F);
}

TEST(SlotConversionTest, WithoutBassControlTheFlagStaysZero) {
    EXPECT_EQ(converted(slotOf({{channelWithTaps(numbers(1))}})).bassControlPresent, 0U);
}

TEST(SlotConversionTest, ABlockWithoutSectionsSetsTheFlag) {
    EXPECT_EQ(converted(slotWithBassControl({{}})).bassControlPresent, 1U);
}

TEST(SlotConversionTest, IirSectionWritesBiquadsAndLeavesGainAndDelay) {
    const DiracConfiguration image = converted(
        slotWithBassControl({{section(0, {cell({biquad(1.0), biquad(10.0)}, 12.0, 3.0)})}}));

    EXPECT_EQ(image.bassControlPresent, 1U);
    EXPECT_EQ(image.bassControl[0][0].type, 0U);
    EXPECT_EQ(image.bassControl[0][0].cellCount, 1U);
    const DiracBassControlCell& record = image.bassControl[0][0].cells[0];
    EXPECT_EQ(record.biquadCount, 2U);
    EXPECT_EQ(record.biquads[1].a1, 10.0F);
    EXPECT_EQ(record.biquads[1].a2, 11.0F);
    EXPECT_EQ(record.biquads[1].b0, 12.0F);
    EXPECT_EQ(record.biquads[1].b1, 13.0F);
    EXPECT_EQ(record.biquads[1].b2, 14.0F);
    EXPECT_EQ(record.delay, 0);
    EXPECT_EQ(record.gain, 0.0F);
}

TEST(SlotConversionTest, DelayGainSectionWritesNoBiquads) {
    const DiracConfiguration image =
        converted(slotWithBassControl({{section(1, {cell({biquad(1.0)}, 12.0, -3.5)})}}));
    EXPECT_EQ(image.bassControl[0][0].type, 1U);
    const DiracBassControlCell& record = image.bassControl[0][0].cells[0];
    EXPECT_EQ(record.delay, 12);
    EXPECT_EQ(record.gain, -3.5F);
    EXPECT_EQ(record.biquadCount, 0U);
    EXPECT_EQ(record.biquads[0].a1, 0.0F);
}

TEST(SlotConversionTest, AnyOtherSectionTypeIsDelayAndGain) {
    const DiracConfiguration image =
        converted(slotWithBassControl({{section(7, {cell({biquad(1.0)}, 12.0, -3.5)})}}));
    EXPECT_EQ(image.bassControl[0][0].type, 7U);
    EXPECT_EQ(image.bassControl[0][0].cells[0].delay, 12);
    EXPECT_EQ(image.bassControl[0][0].cells[0].biquadCount, 0U);
}

TEST(SlotConversionTest, CellDelayIsTruncatedTowardZero) {
    EXPECT_EQ(delayGainCell(12.9, 0.0).delay, 12);
    EXPECT_EQ(delayGainCell(-12.9, 0.0).delay, -12);
}

TEST(SlotConversionTest, CellDelayThatNoIntegerHoldsIsTheNearest) {
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(delayGainCell(1e300, 0.0).delay, std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(delayGainCell(kInfinity, 0.0).delay, std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(delayGainCell(-kInfinity, 0.0).delay, std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(delayGainCell(std::nan(""), 0.0).delay, 0);
}

TEST(SlotConversionTest, IndicesOfBassControlAreDataAndChooseNoPlace) {
    VeskDiracBcCells far = cell({}, 1.0, 1.0);
    far.setCellIdx(4);
    far.setInputIdx(8);
    far.setOutputIdx(9);
    VeskDiracBcParams last = section(1, {far});
    last.setSectionIdx(4);

    const DiracBassControlSection record =
        converted(slotWithBassControl({{last}})).bassControl[0][0];
    EXPECT_EQ(record.sectionIdx, 4U);
    EXPECT_EQ(record.cells[0].cellIdx, 4U);
    EXPECT_EQ(record.cells[0].inputIdx, 8U);
    EXPECT_EQ(record.cells[0].outputIdx, 9U);
    EXPECT_EQ(record.cells[4].inputIdx, 0U);
}

TEST(SlotConversionTest, BlocksSectionsAndCellsFillTheirPlacesInOrder) {
    const QVariantList two{cell({}, 1.0, 0.0), cell({}, 2.0, 0.0)};
    const DiracConfiguration image = converted(
        slotWithBassControl({{section(1, {}), section(1, two)}, {section(1, {two.at(1)})}}));
    EXPECT_EQ(image.bassControl[0][0].cellCount, 0U);
    EXPECT_EQ(image.bassControl[0][1].cellCount, 2U);
    EXPECT_EQ(image.bassControl[0][1].cells[1].delay, 2);
    EXPECT_EQ(image.bassControl[1][0].cells[0].delay, 2);
}

TEST(SlotConversionTest, FullSlotFillsTheImageToItsEdges) {
    const VeskDiracChannelParams fullChannel =
        channel(fiir(numbers(1024), repeated(parallelBiquad(1.0), 30)));
    const QVariantList group = repeated(fullChannel, 10);
    VeskDiracSlot slot = slotOf({group, group});
    const QVariantList cells = repeated(cell(repeated(biquad(1.0), 30), 0.0, 0.0), 5);
    const QVariantList sections = repeated(section(0, cells), 5);
    slot.setBcParams({QVariant(sections), QVariant(sections)});

    const auto guarded = std::make_unique<GuardedImage>();
    DiracConfiguration& image = guarded->image();
    EXPECT_EQ(convertSlot(slot, image), std::nullopt);
    EXPECT_TRUE(guarded->isIntact());
    EXPECT_EQ(image.groups[1][9].taps[1023], 1024.0F);
    EXPECT_EQ(image.groups[1][9].biquads[29].b1, 4.0F);
    EXPECT_EQ(image.bassControl[1][4].cells[4].biquads[29].b2, 5.0F);
    EXPECT_EQ(image.sampleRates, kDiracSubSamplerRates);
    EXPECT_EQ(image.bypass, 1);
}

TEST(SlotExcessTest, TooManyTaps) {
    EXPECT_THAT(excessOf(slotOf({{}, {channelWithTaps({}), channelWithTaps(numbers(1025))}})),
                Optional(std::string("group 1: channel 1: 1025 taps, the image holds 0 to 1024")));
}

TEST(SlotExcessTest, TooManyBiquads) {
    EXPECT_THAT(excessOf(slotOf({{channel(fiir({}, repeated(parallelBiquad(1.0), 31)))}})),
                Optional(std::string("group 0: channel 0: 31 biquads, the image holds 0 to 30")));
}

TEST(SlotExcessTest, TooManyChannels) {
    EXPECT_THAT(excessOf(slotOf({repeated(channelWithTaps({1.0}), 11)})),
                Optional(std::string("group 0: 11 channels, the image holds 0 to 10")));
}

TEST(SlotExcessTest, TooManyGroups) {
    EXPECT_THAT(excessOf(slotOf({{}, {}, {}})),
                Optional(std::string("3 groups, the image holds 0 to 2")));
}

TEST(SlotExcessTest, TooManyBlocks) {
    EXPECT_THAT(excessOf(slotWithBassControl({{}, {}, {}})),
                Optional(std::string("3 bass-control blocks, the image holds 0 to 2")));
}

TEST(SlotExcessTest, TooManySections) {
    EXPECT_THAT(excessOf(slotWithBassControl({{}, repeated(section(0, {}), 6)})),
                Optional(std::string("bass-control block 1: 6 sections, the image holds 0 to 5")));
}

TEST(SlotExcessTest, TooManyCells) {
    EXPECT_THAT(
        excessOf(slotWithBassControl({{section(1, repeated(cell({}, 0.0, 0.0), 6))}})),
        Optional(std::string("bass-control block 0: section 0: 6 cells, the image holds 0 to 5")));
}

TEST(SlotExcessTest, TooManyIirs) {
    EXPECT_THAT(
        excessOf(slotWithBassControl({{section(0, {cell(repeated(biquad(1.0), 31), 0.0, 0.0)})}})),
        Optional(std::string("bass-control block 0: section 0: cell 0: 31 biquads, the "
                             "image holds 0 to 30")));
}

TEST(SlotExcessTest, CountBeyondTheImageIsReportedBeforeAShortList) {
    VeskDiracFiirParams filter = fiir(numbers(3), {});
    filter.setTapSize(std::numeric_limits<int>::max());
    EXPECT_THAT(excessOf(slotOf({{channel(filter)}})),
                Optional(std::string("group 0: channel 0: 2147483647 taps, the image holds 0 to "
                                     "1024")));
}

TEST(SlotExcessTest, NegativeCounts) {
    VeskDiracFiirParams filter = fiir(numbers(3), {});
    filter.setTapSize(-1);
    EXPECT_THAT(excessOf(slotOf({{channel(filter)}})),
                Optional(std::string("group 0: channel 0: -1 taps, the image holds 0 to 1024")));

    filter.setTapSize(3);
    filter.setBiquadSize(-2);
    EXPECT_THAT(excessOf(slotOf({{channel(filter)}})),
                Optional(std::string("group 0: channel 0: -2 biquads, the image holds 0 to 30")));

    VeskDiracBcParams bassControl = section(0, {});
    bassControl.setNumCells(-3);
    EXPECT_THAT(
        excessOf(slotWithBassControl({{bassControl}})),
        Optional(std::string("bass-control block 0: section 0: -3 cells, the image holds 0 to 5")));

    VeskDiracBcCells iirCell = cell({}, 0.0, 0.0);
    iirCell.setNumIirs(-4);
    EXPECT_THAT(excessOf(slotWithBassControl({{section(0, {iirCell})}})),
                Optional(std::string("bass-control block 0: section 0: cell 0: -4 biquads, the "
                                     "image holds 0 to 30")));
}

TEST(SlotExcessTest, CountsInTheImageNeverExceedIt) {
    DiracConfiguration image;
    EXPECT_NE(convertSlot(slotOf({{channelWithTaps(numbers(1025))}}), image), std::nullopt);
    EXPECT_LE(image.groups[0][0].tapCount, 1024U);
}

class SlotConversionDeathTest : public testing::Test {
protected:
    SlotConversionDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    static void convert(const VeskDiracSlot& slot) {
        DiracConfiguration image;
        static_cast<void>(convertSlot(slot, image));
    }
};

TEST_F(SlotConversionDeathTest, FewerTapsThanTheirCountEndTheProcess) {
    VeskDiracFiirParams filter = fiir(numbers(3), {});
    filter.setTapSize(4);
    EXPECT_DEATH(convert(slotOf({{channel(filter)}})), "QList<T>::at.*index out of range");
}

TEST_F(SlotConversionDeathTest, FewerBiquadsThanTheirCountEndTheProcess) {
    VeskDiracFiirParams filter = fiir({}, {parallelBiquad(1.0)});
    filter.setBiquadSize(2);
    EXPECT_DEATH(convert(slotOf({{channel(filter)}})), "QList<T>::at.*index out of range");
}

TEST_F(SlotConversionDeathTest, FewerCellsThanTheirCountEndTheProcess) {
    VeskDiracBcParams bassControl = section(0, {});
    bassControl.setNumCells(1);
    EXPECT_DEATH(convert(slotWithBassControl({{bassControl}})), "QList<T>::at.*index out of range");
}

TEST_F(SlotConversionDeathTest, FewerIirsThanTheirCountEndTheProcess) {
    VeskDiracBcCells iirCell = cell({}, 0.0, 0.0);
    iirCell.setNumIirs(1);
    EXPECT_DEATH(convert(slotWithBassControl({{section(0, {iirCell})}})),
                 "QList<T>::at.*index out of range");
}
