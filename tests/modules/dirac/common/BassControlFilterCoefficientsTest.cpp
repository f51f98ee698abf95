#include "modules/dirac/common/BassControlFilterCoefficients.h"
#include "modules/dirac/common/Biquads.h"

#include <gtest/gtest.h>

#include <stdexcept>

using processing::BassControlFilterCoefficients;
using processing::CellIndex;

namespace {

using Section = std::vector<CellIndex>;
using Sections = std::vector<Section>;

/// What the read throws, as text.
template <typename Read>
std::string outOfRange(const Read& read) {
    try {
        read();
    } catch (const std::out_of_range& error) {
        return error.what();
    }
    return "nothing thrown";
}

}  // namespace

TEST(BassControlFilterCoefficientsTest, IsEmptyAtFirst) {
    EXPECT_TRUE(BassControlFilterCoefficients().getCellIndices().empty());
}

TEST(BassControlFilterCoefficientsTest, SectionsListTheirCellsInTheOrderOfSetting) {
    BassControlFilterCoefficients filter;
    filter.setCoefficientsForCell({2, 0, 1}, {biquadFrom(1.0F)});
    filter.setCoefficientsForCell({2, 0, 0}, {});

    const Sections expected{{}, {}, {{2, 0, 1}, {2, 0, 0}}};
    EXPECT_EQ(filter.getCellIndices(), expected);

    filter.setCoefficientsForCell({2, 0, 1}, {biquadFrom(10.0F), biquadFrom(20.0F)});
    EXPECT_EQ(filter.getCellIndices(), expected) << "set again: no further entry";
    ASSERT_EQ(filter.getBiquadsForCell({2, 0, 1}).size(), 2U);
    EXPECT_EQ(numbersOf(filter.getBiquadsForCell({2, 0, 1})[1]), numbersOf(biquadFrom(20.0F)));
}

TEST(BassControlFilterCoefficientsTest, DelayAndGainSetAgainReplaceTheFirst) {
    BassControlFilterCoefficients filter;
    filter.setDelayGainForCell({4, 1, 2}, 7, 0.5F);
    filter.setDelayGainForCell({4, 1, 2}, -9, 0.25F);

    EXPECT_EQ(filter.getCellIndices(), (Sections{{}, {}, {}, {}, {{4, 1, 2}}}));
    EXPECT_EQ(filter.getDelayForCell({4, 1, 2}), -9);
    EXPECT_EQ(filter.getGainForCell({4, 1, 2}), 0.25F);
}

TEST(BassControlFilterCoefficientsTest, ACellWithBiquadsAndDelayIsListedTwice) {
    BassControlFilterCoefficients filter;
    filter.setCoefficientsForCell({1, 0, 0}, {biquadFrom(1.0F)});
    filter.setDelayGainForCell({1, 0, 0}, 1, 1.0F);
    EXPECT_EQ(filter.getCellIndices(), (Sections{{}, {{1, 0, 0}, {1, 0, 0}}}));
}

TEST(BassControlFilterCoefficientsTest, HighInputsAndOutputsAreCellsOfTheirOwn) {
    constexpr std::uint32_t kHigh = 0x80000000U;
    BassControlFilterCoefficients filter;
    filter.setDelayGainForCell({0, kHigh, 0}, 1, 1.0F);
    filter.setDelayGainForCell({0, 0, kHigh}, 2, 2.0F);
    EXPECT_EQ(filter.getDelayForCell({0, kHigh, 0}), 1);
    EXPECT_EQ(filter.getDelayForCell({0, 0, kHigh}), 2);
    EXPECT_EQ(filter.getCellIndices(), (Sections{{{0, kHigh, 0}, {0, 0, kHigh}}}));
}

TEST(BassControlFilterCoefficientsTest, ResizeToFitGrowsAndNeverShrinks) {
    BassControlFilterCoefficients filter;
    filter.resizeToFit(3);
    EXPECT_EQ(filter.getCellIndices(), Sections(3));
    filter.resizeToFit(1);
    filter.resizeToFit(-1);
    EXPECT_EQ(filter.getCellIndices(), Sections(3));
}

TEST(BassControlFilterCoefficientsTest, ReadingAnUnknownCellThrowsOutOfRange) {
    const BassControlFilterCoefficients filter;
    const CellIndex cell{9, 9, 9};
    EXPECT_EQ(outOfRange([&] { static_cast<void>(filter.getDelayForCell(cell)); }), "map::at");
    EXPECT_EQ(outOfRange([&] { static_cast<void>(filter.getGainForCell(cell)); }), "map::at");
    EXPECT_EQ(outOfRange([&] { static_cast<void>(filter.getBiquadsForCell(cell)); }), "map::at");
}

TEST(BassControlFilterCoefficientsTest, ReadingTheOtherKindOfACellThrowsOutOfRange) {
    BassControlFilterCoefficients filter;
    filter.setCoefficientsForCell({2, 0, 0}, {biquadFrom(1.0F)});
    filter.setDelayGainForCell({0, 0, 0}, 1, 1.0F);
    EXPECT_EQ(outOfRange([&] { static_cast<void>(filter.getDelayForCell({2, 0, 0})); }), "map::at");
    EXPECT_EQ(outOfRange([&] {
                  static_cast<void>(filter.getBiquadsForCell({0, 0, 0}));
              }),
              "map::at");
}

TEST(BassControlFilterCoefficientsTest, CopiesAreIndependent) {
    BassControlFilterCoefficients original;
    original.setDelayGainForCell({0, 0, 0}, 1, 1.0F);
    BassControlFilterCoefficients copy = original;
    copy.setDelayGainForCell({0, 0, 0}, 2, 2.0F);
    copy.setDelayGainForCell({1, 0, 0}, 3, 3.0F);
    EXPECT_EQ(original.getDelayForCell({0, 0, 0}), 1);
    EXPECT_EQ(original.getCellIndices().size(), 1U);
}
