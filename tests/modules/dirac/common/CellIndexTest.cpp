#include "modules/dirac/common/CellIndex.h"

#include <gtest/gtest.h>

#include <set>

using processing::CellIndex;

TEST(CellIndexTest, OrdersBySectionThenInputThenOutput) {
    EXPECT_LT((CellIndex{0, 9, 9}), (CellIndex{1, 0, 0}));
    EXPECT_LT((CellIndex{1, 0, 9}), (CellIndex{1, 1, 0}));
    EXPECT_LT((CellIndex{1, 1, 0}), (CellIndex{1, 1, 1}));
    EXPECT_FALSE((CellIndex{1, 1, 1} < CellIndex{1, 1, 1}));
}

TEST(CellIndexTest, MapIterationOrderIsLexicographic) {
    const std::set<CellIndex> cells{{0, 5, 0}, {1, 0, 0}, {0, 0, 7}};
    const std::vector<CellIndex> ordered(cells.begin(), cells.end());
    EXPECT_EQ(ordered, (std::vector<CellIndex>{{0, 0, 7}, {0, 5, 0}, {1, 0, 0}}));
}

TEST(CellIndexTest, FieldsCompareAsUnsignedNumbers) {
    constexpr std::uint32_t kHigh = 0x80000000U;
    EXPECT_LT((CellIndex{0x7FFFFFFFU, 0, 0}), (CellIndex{kHigh, 0, 0}));
    EXPECT_LT((CellIndex{0, 1, 0}), (CellIndex{0, kHigh, 0}));
    EXPECT_LT((CellIndex{0, 0, 1}), (CellIndex{0, 0, 0xFFFFFFFFU}));
}

TEST(CellIndexTest, EqualWhenAllFieldsAre) {
    EXPECT_EQ((CellIndex{1, 2, 3}), (CellIndex{1, 2, 3}));
    EXPECT_NE((CellIndex{1, 2, 3}), (CellIndex{0, 2, 3}));
    EXPECT_NE((CellIndex{1, 2, 3}), (CellIndex{1, 0, 3}));
    EXPECT_NE((CellIndex{1, 2, 3}), (CellIndex{1, 2, 0}));
}
