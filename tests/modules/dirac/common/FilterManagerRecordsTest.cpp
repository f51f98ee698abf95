#include "modules/dirac/common/Biquads.h"
#include "modules/dirac/common/FilterManagerRecords.h"

#include <gtest/gtest.h>

#include <stdexcept>

using processing::BassControlFilterCoefficients;
using processing::bassControlParams;
using processing::channelFilters;
using processing::channelParams;
using processing::FilterCoefficients;

namespace {

/// The record of the one cell of the one variant.
VeskDiracChannelParams recordOf(const FilterCoefficients& filter) {
    const QVariantList params = channelParams({filter});
    return VeskDiracChannelParams(params.at(0).toList().at(0));
}

FilterCoefficients filterWith(const std::vector<float>& taps,
                              const std::vector<dio::endpoint::Biquad>& biquads) {
    FilterCoefficients filter;
    filter.setCoefficientsForCell(0, taps, biquads);
    return filter;
}

VeskDiracLinearParams linearOf(float delay, float gain) {
    FilterCoefficients filter;
    filter.setGainDelayForCell(0, gain, delay);
    return recordOf(filter).linear();
}

/// A variant with taps `first`, `first` + 1, … in cells 0, 1, ….
FilterCoefficients variantWithTaps(float first, int cells) {
    FilterCoefficients filter;
    for (int cell = 0; cell < cells; ++cell)
        filter.setCoefficientsForCell(cell, {first + static_cast<float>(cell)}, {});
    return filter;
}

float tapAt(const QVariantList& params, int variant, int cell) {
    const VeskDiracChannelParams channel(params.at(variant).toList().at(cell));
    return channel.fiir().taps().at(0).toFloat();
}

/// A design that uses the sections that it must, and nothing more.
BassControlFilterCoefficients leastBassControl() {
    BassControlFilterCoefficients filter;
    filter.setDelayGainForCell({4, 0, 0}, 0, 0.0F);
    return filter;
}

VeskDiracBcParams sectionOf(const BassControlFilterCoefficients& filter, int section) {
    const QVariantList params = bassControlParams({filter});
    return VeskDiracBcParams(params.at(0).toList().at(section));
}

VeskDiracBcCells cellOf(const VeskDiracBcParams& section, int cell) {
    return VeskDiracBcCells(section.cells().at(cell));
}

/// A record with one channel list a variant, as large as `size` says.
VeskDiracSlot recordWith(const std::vector<FilterCoefficients>& filters, qint64 size) {
    VeskDiracSlot record;
    record.setParams(channelParams(filters));
    record.setSize(size);
    return record;
}

}  // namespace

class BassControlParamsDeathTest : public testing::Test {
protected:
    BassControlParamsDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

class ChannelFiltersDeathTest : public BassControlParamsDeathTest {};

TEST(ChannelParamsTest, TwoVariantsOfThreeCellsAreTwoListsOfThree) {
    const QVariantList params =
        channelParams({variantWithTaps(10.0F, 3), variantWithTaps(20.0F, 3)});

    ASSERT_EQ(params.size(), 2);
    for (int variant = 0; variant < 2; ++variant) {
        ASSERT_EQ(params.at(variant).toList().size(), 3);
        for (int cell = 0; cell < 3; ++cell)
            EXPECT_EQ(tapAt(params, variant, cell), static_cast<float>(10 * (variant + 1) + cell));
    }
}

TEST(ChannelParamsTest, NoVariantsAreAnEmptyList) {
    EXPECT_TRUE(channelParams({}).isEmpty());
}

TEST(ChannelParamsTest, TapsAreWidenedInOrder) {
    const VeskDiracFiirParams fiir = recordOf(filterWith({0.1F, -2.0F, 3.0F}, {})).fiir();

    EXPECT_TRUE(fiir.enabled());
    EXPECT_EQ(fiir.tapSize(), 3);
    EXPECT_EQ(fiir.taps(), (QVariantList{double{0.1F}, -2.0, 3.0}));
    EXPECT_EQ(fiir.taps().at(0).type(), QVariant::Double);
    EXPECT_EQ(fiir.biquadSize(), 0);
    EXPECT_TRUE(fiir.biquads().isEmpty());
}

TEST(ChannelParamsTest, OnlyBiquadsEnableAndLoseTheirFifthCoefficient) {
    const VeskDiracFiirParams fiir =
        recordOf(filterWith({}, {biquadFrom(1.0F), biquadFrom(10.0F)})).fiir();

    EXPECT_TRUE(fiir.enabled());
    EXPECT_EQ(fiir.tapSize(), 0);
    EXPECT_EQ(fiir.biquadSize(), 2);
    ASSERT_EQ(fiir.biquads().size(), 2);
    const VeskDiracPiirBiquad second(fiir.biquads().at(1));
    EXPECT_EQ(second.a1(), 10.0);
    EXPECT_EQ(second.a2(), 11.0);
    EXPECT_EQ(second.b0(), 12.0);
    EXPECT_EQ(second.b1(), 13.0);
    EXPECT_EQ(second.hash().size(), 4);
}

TEST(ChannelParamsTest, NeitherTapsNorBiquadsDisables) {
    const VeskDiracFiirParams fiir = recordOf(filterWith({}, {})).fiir();

    EXPECT_FALSE(fiir.enabled());
    EXPECT_TRUE(fiir.contains(VeskDiracFiirParams::Enabled()));
    EXPECT_EQ(fiir.tapSize(), 0);
    EXPECT_TRUE(fiir.contains(VeskDiracFiirParams::TapSize()));
    EXPECT_EQ(fiir.biquadSize(), 0);
    EXPECT_TRUE(fiir.contains(VeskDiracFiirParams::BiquadSize()));
    EXPECT_FALSE(fiir.contains(VeskDiracFiirParams::Taps()));
    EXPECT_FALSE(fiir.contains(VeskDiracFiirParams::Biquads()));
}

TEST(ChannelParamsTest, DelayAndGainEnableTheLinearPart) {
    const VeskDiracLinearParams linear = linearOf(5.0F, 1.0F);
    EXPECT_TRUE(linear.enabled());
    EXPECT_EQ(linear.delay(), 5.0);
    EXPECT_EQ(linear.gain(), 1.0);
}

TEST(ChannelParamsTest, NegativeDelayAndGainEnableTheLinearPart) {
    const VeskDiracLinearParams linear = linearOf(-0.1F, -6.5F);
    EXPECT_TRUE(linear.enabled());
    EXPECT_EQ(linear.delay(), double{-0.1F});
    EXPECT_EQ(linear.gain(), -6.5);
}

TEST(ChannelParamsTest, ZeroDelayDisablesTheLinearPart) {
    const VeskDiracLinearParams linear = linearOf(0.0F, 1.0F);
    EXPECT_FALSE(linear.enabled());
    EXPECT_TRUE(linear.contains(VeskDiracLinearParams::Enabled()));
    EXPECT_FALSE(linear.contains(VeskDiracLinearParams::Delay()));
    EXPECT_FALSE(linear.contains(VeskDiracLinearParams::Gain()));
}

TEST(ChannelParamsTest, ZeroGainDisablesTheLinearPart) {
    const VeskDiracLinearParams linear = linearOf(5.0F, 0.0F);
    EXPECT_FALSE(linear.enabled());
    EXPECT_FALSE(linear.contains(VeskDiracLinearParams::Delay()));
    EXPECT_FALSE(linear.contains(VeskDiracLinearParams::Gain()));
}

TEST(BassControlParamsTest, NoDesignsAreAnEmptyList) {
    EXPECT_TRUE(bassControlParams({}).isEmpty());
}

TEST(BassControlParamsTest, SectionsWithoutCellsAreListedEmpty) {
    BassControlFilterCoefficients filter;
    filter.setCoefficientsForCell({0, 1, 2}, {biquadFrom(1.0F)});
    filter.setDelayGainForCell({4, 0, 1}, 17, -3.5F);
    filter.setDelayGainForCell({4, 1, 1}, -2, 1.5F);

    const QVariantList params = bassControlParams({filter});
    ASSERT_EQ(params.size(), 1);
    ASSERT_EQ(params.at(0).toList().size(), 5);
    for (const int section : {1, 2, 3}) {
        EXPECT_EQ(sectionOf(filter, section).numCells(), 0);
        EXPECT_TRUE(sectionOf(filter, section).cells().isEmpty());
    }
    EXPECT_EQ(sectionOf(filter, 0).numCells(), 1);
    EXPECT_EQ(sectionOf(filter, 4).numCells(), 2);
}

TEST(BassControlParamsTest, SectionsCarryTheirNumberAndKind) {
    const BassControlFilterCoefficients filter = leastBassControl();
    for (int section = 0; section < 5; ++section) {
        EXPECT_EQ(sectionOf(filter, section).sectionIdx(), section);
        EXPECT_EQ(sectionOf(filter, section).type(), section == 2 || section == 4 ? 1 : 0);
    }
}

TEST(BassControlParamsTest, DelayGainCellsAreAllNumberedZero) {
    BassControlFilterCoefficients filter;
    filter.setDelayGainForCell({4, 0, 1}, 17, -3.5F);
    filter.setDelayGainForCell({4, 3, 2}, -2, 1.5F);

    const VeskDiracBcCells first = cellOf(sectionOf(filter, 4), 0);
    EXPECT_EQ(first.cellIdx(), 0);
    EXPECT_EQ(first.inputIdx(), 0);
    EXPECT_EQ(first.outputIdx(), 1);
    EXPECT_EQ(first.delay(), 17.0);
    EXPECT_EQ(first.value(VeskDiracBcCells::Delay()).type(), QVariant::Double);
    EXPECT_EQ(first.gain(), -3.5);

    const VeskDiracBcCells second = cellOf(sectionOf(filter, 4), 1);
    EXPECT_EQ(second.cellIdx(), 0);
    EXPECT_TRUE(second.contains(VeskDiracBcCells::CellIdx()));
    EXPECT_EQ(second.inputIdx(), 3);
    EXPECT_EQ(second.outputIdx(), 2);
    EXPECT_EQ(second.delay(), -2.0);
    EXPECT_FALSE(second.contains(VeskDiracBcCells::Iirs()));
    EXPECT_FALSE(second.contains(VeskDiracBcCells::NumIirs()));
}

TEST(BassControlParamsTest, IirCellsAreNumberedAndCarryAllFiveCoefficients) {
    BassControlFilterCoefficients filter = leastBassControl();
    filter.setCoefficientsForCell({3, 5, 6}, {});
    filter.setCoefficientsForCell({3, 0, 1}, {biquadFrom(1.0F), biquadFrom(10.0F)});

    const VeskDiracBcParams section = sectionOf(filter, 3);
    ASSERT_EQ(section.numCells(), 2);
    EXPECT_EQ(cellOf(section, 0).cellIdx(), 0);
    EXPECT_EQ(cellOf(section, 0).numIirs(), 0);
    EXPECT_TRUE(cellOf(section, 0).contains(VeskDiracBcCells::NumIirs()));

    const VeskDiracBcCells second = cellOf(section, 1);
    EXPECT_EQ(second.cellIdx(), 1);
    EXPECT_EQ(second.inputIdx(), 0);
    EXPECT_EQ(second.outputIdx(), 1);
    EXPECT_EQ(second.numIirs(), 2);
    EXPECT_FALSE(second.contains(VeskDiracBcCells::Delay()));
    EXPECT_FALSE(second.contains(VeskDiracBcCells::Gain()));
    ASSERT_EQ(second.iirs().size(), 2);
    const VeskDiracIirBiquad biquad(second.iirs().at(1));
    EXPECT_EQ(biquad.a1(), 10.0);
    EXPECT_EQ(biquad.a2(), 11.0);
    EXPECT_EQ(biquad.b0(), 12.0);
    EXPECT_EQ(biquad.b1(), 13.0);
    EXPECT_EQ(biquad.b2(), 14.0);
}

TEST(BassControlParamsTest, EachDesignIsAListOfItsOwn) {
    BassControlFilterCoefficients other = leastBassControl();
    other.setDelayGainForCell({2, 0, 0}, 1, 1.0F);
    const QVariantList params = bassControlParams({leastBassControl(), other});
    ASSERT_EQ(params.size(), 2);
    EXPECT_EQ(VeskDiracBcParams(params.at(0).toList().at(2)).numCells(), 0);
    EXPECT_EQ(VeskDiracBcParams(params.at(1).toList().at(2)).numCells(), 1);
}

TEST(BassControlParamsTest, ABiquadCellInADelaySectionThrowsOutOfRange) {
    BassControlFilterCoefficients filter = leastBassControl();
    filter.setCoefficientsForCell({2, 0, 0}, {biquadFrom(1.0F)});
    EXPECT_THROW(bassControlParams({filter}), std::out_of_range);
}

TEST(BassControlParamsTest, ADelayCellInABiquadSectionThrowsOutOfRange) {
    BassControlFilterCoefficients filter = leastBassControl();
    filter.setDelayGainForCell({1, 0, 0}, 1, 1.0F);
    EXPECT_THROW(bassControlParams({filter}), std::out_of_range);
}

TEST_F(BassControlParamsDeathTest, ADesignWithoutSection4EndsTheProcess) {
    BassControlFilterCoefficients filter;
    filter.setCoefficientsForCell({0, 0, 0}, {biquadFrom(1.0F)});
    EXPECT_DEATH(bassControlParams({filter}),
                 "sections.size\\(\\) == 5.* src/modules/dirac/common/FilterManager");
}

TEST_F(BassControlParamsDeathTest, ADesignWithACellAboveSection4EndsTheProcess) {
    BassControlFilterCoefficients filter = leastBassControl();
    filter.setDelayGainForCell({5, 0, 0}, 1, 1.0F);
    EXPECT_DEATH(bassControlParams({filter}), "sections.size\\(\\) == 5");
}

TEST_F(BassControlParamsDeathTest, AnEmptyDesignEndsTheProcess) {
    EXPECT_DEATH(bassControlParams({BassControlFilterCoefficients()}), "sections.size\\(\\) == 5");
}

TEST(ChannelFiltersTest, ReadsBackWhatWasWritten) {
    FilterCoefficients written;
    written.setCoefficientsForCell(0, {0.1F, 0.2F}, {biquadFrom(1.0F)});
    written.setGainDelayForCell(0, 0.5F, 0.25F);
    written.setCoefficientsForCell(1, {}, {biquadFrom(10.0F)});

    const auto read = channelFilters(recordWith({written, variantWithTaps(7.0F, 2)}, 2), 2);

    ASSERT_EQ(read.size(), 2U);
    EXPECT_EQ(read[0].size(), 2U);
    EXPECT_EQ(read[0].getFirTapsForCell(0), (std::vector<float>{0.1F, 0.2F}));
    EXPECT_EQ(read[0].getGainForCell(0), 0.5F);
    EXPECT_EQ(read[0].getDelayForCell(0), 0.25F);
    EXPECT_TRUE(read[0].getFirTapsForCell(1).empty());
    ASSERT_EQ(read[0].getBiquadsForCell(1).size(), 1U);
    EXPECT_EQ(numbersOf(read[0].getBiquadsForCell(1)[0]),
              (std::array<float, 5>{10.0F, 11.0F, 12.0F, 13.0F, 0.0F}))
        << "the fifth coefficient is not stored";
    EXPECT_EQ(read[1].getFirTapsForCell(1), (std::vector<float>{8.0F}));
}

TEST(ChannelFiltersTest, SizeIsTheNumberOfCellsOfAVariant) {
    const auto read =
        channelFilters(recordWith({variantWithTaps(1.0F, 10), variantWithTaps(2.0F, 10)}, 2), 2);
    ASSERT_EQ(read.size(), 2U);
    EXPECT_EQ(read[0].size(), 2U);
    EXPECT_EQ(read[1].size(), 2U);
}

TEST(ChannelFiltersTest, FlagsAndCountsOfTheRecordAreNotAsked) {
    VeskDiracFiirParams fiir;
    fiir.setEnabled(false);
    fiir.setTapSize(0);
    fiir.setTaps({1.0, 2.0});
    VeskDiracChannelParams channel;
    channel.setFiir(fiir);
    VeskDiracSlot record;
    record.setSize(1);
    record.setParams({QVariant(QVariantList{channel})});

    EXPECT_EQ(channelFilters(record, 1)[0].getFirTapsForCell(0), (std::vector<float>{1.0F, 2.0F}));
}

TEST(ChannelFiltersTest, ARecordWithoutADesignHasEmptyVariants) {
    const auto read = channelFilters(VeskDiracSlot(), 2);
    ASSERT_EQ(read.size(), 2U);
    EXPECT_EQ(read[0].size(), 0U);
}

TEST_F(ChannelFiltersDeathTest, FewerListsThanVariantsEndTheProcess) {
    EXPECT_DEATH(channelFilters(recordWith({variantWithTaps(1.0F, 2)}, 2), 2),
                 "index out of range");
}

TEST_F(ChannelFiltersDeathTest, FewerCellsThanTheSizeEndTheProcess) {
    EXPECT_DEATH(channelFilters(recordWith({variantWithTaps(1.0F, 2)}, 3), 1),
                 "index out of range");
}
