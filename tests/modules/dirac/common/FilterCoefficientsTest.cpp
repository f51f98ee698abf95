#include "modules/dirac/common/Biquads.h"
#include "modules/dirac/common/FilterCoefficients.h"

#include <gtest/gtest.h>

#include <limits>

using processing::FilterCoefficients;

namespace {

using Taps = std::vector<float>;

}  // namespace

TEST(FilterCoefficientsTest, IsEmptyAtFirst) {
    EXPECT_EQ(FilterCoefficients().size(), 0U);
}

TEST(FilterCoefficientsTest, GainAndDelayOfAFarCellAddTheCellsBefore) {
    FilterCoefficients filter;
    filter.setGainDelayForCell(3, 0.5F, 12.25F);

    ASSERT_EQ(filter.size(), 4U);
    for (int cell = 0; cell < 4; ++cell) {
        EXPECT_TRUE(filter.getFirTapsForCell(cell).empty());
        EXPECT_TRUE(filter.getBiquadsForCell(cell).empty());
        EXPECT_EQ(filter.getDelayForCell(cell), cell == 3 ? 12.25F : 0.0F);
        EXPECT_EQ(filter.getGainForCell(cell), cell == 3 ? 0.5F : 0.0F);
    }
}

TEST(FilterCoefficientsTest, CoefficientsOfAFarCellAddTheCellsBefore) {
    FilterCoefficients filter;
    filter.setCoefficientsForCell(2, {1.0F, 2.0F}, {biquadFrom(1.0F)});

    ASSERT_EQ(filter.size(), 3U);
    EXPECT_TRUE(filter.getFirTapsForCell(1).empty());
    EXPECT_EQ(filter.getFirTapsForCell(2), (Taps{1.0F, 2.0F}));
    ASSERT_EQ(filter.getBiquadsForCell(2).size(), 1U);
    EXPECT_EQ(numbersOf(filter.getBiquadsForCell(2)[0]), numbersOf(biquadFrom(1.0F)));
    EXPECT_EQ(filter.getDelayForCell(2), 0.0F);
    EXPECT_EQ(filter.getGainForCell(2), 0.0F);
}

TEST(FilterCoefficientsTest, CoefficientsAreReplacedAndGainAndDelayStay) {
    FilterCoefficients filter;
    filter.setGainDelayForCell(0, 2.0F, 3.0F);
    filter.setCoefficientsForCell(0, {1.0F, 2.0F}, {biquadFrom(1.0F)});
    filter.setCoefficientsForCell(0, {5.0F}, {});

    EXPECT_EQ(filter.size(), 1U);
    EXPECT_EQ(filter.getFirTapsForCell(0), (Taps{5.0F}));
    EXPECT_TRUE(filter.getBiquadsForCell(0).empty());
    EXPECT_EQ(filter.getGainForCell(0), 2.0F);
    EXPECT_EQ(filter.getDelayForCell(0), 3.0F);
}

TEST(FilterCoefficientsTest, NegativeCellsAreIgnored) {
    FilterCoefficients filter;
    filter.setCoefficientsForCell(-1, {1.0F}, {biquadFrom(1.0F)});
    filter.setGainDelayForCell(-1, 1.0F, 1.0F);
    filter.setGainDelayForCell(std::numeric_limits<int>::min(), 1.0F, 1.0F);
    EXPECT_EQ(filter.size(), 0U);
}

TEST(FilterCoefficientsTest, ResizeToFitGrows) {
    FilterCoefficients filter;
    filter.resizeToFit(5);
    EXPECT_EQ(filter.size(), 5U);
    EXPECT_EQ(filter.getGainForCell(4), 0.0F);
}

TEST(FilterCoefficientsTest, ResizeToFitNeverShrinks) {
    FilterCoefficients filter;
    filter.setCoefficientsForCell(4, {1.0F}, {});
    filter.resizeToFit(2);
    filter.resizeToFit(-3);
    EXPECT_EQ(filter.size(), 5U);
    EXPECT_EQ(filter.getFirTapsForCell(4), (Taps{1.0F}));
}

TEST(FilterCoefficientsTest, CellsThatDoNotExistAreEmpty) {
    FilterCoefficients filter;
    filter.setCoefficientsForCell(1, {1.0F}, {biquadFrom(1.0F)});
    filter.setGainDelayForCell(1, 1.0F, 1.0F);
    for (const int cell : {-1, 2, 3, std::numeric_limits<int>::max()}) {
        EXPECT_TRUE(filter.getFirTapsForCell(cell).empty()) << cell;
        EXPECT_TRUE(filter.getBiquadsForCell(cell).empty()) << cell;
        EXPECT_EQ(filter.getDelayForCell(cell), 0.0F) << cell;
        EXPECT_EQ(filter.getGainForCell(cell), 0.0F) << cell;
    }
}

TEST(FilterCoefficientsTest, CopiesAreIndependent) {
    FilterCoefficients original;
    original.setCoefficientsForCell(0, {1.0F}, {biquadFrom(1.0F)});
    FilterCoefficients copy = original;
    copy.setCoefficientsForCell(0, {2.0F}, {});
    EXPECT_EQ(original.getFirTapsForCell(0), (Taps{1.0F}));
    EXPECT_EQ(original.getBiquadsForCell(0).size(), 1U);

    original = copy;
    EXPECT_EQ(original.getFirTapsForCell(0), (Taps{2.0F}));
}
