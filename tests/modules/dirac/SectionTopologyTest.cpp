#include "modules/dirac/SectionTopology.h"

#include <gmock/gmock.h>

#include <string>
#include <utility>
#include <vector>

using testing::ElementsAre;
using testing::Pair;

namespace {

constexpr std::uint32_t kSubwoofer = DeviceInfo::kSubwooferType;

DeviceInfo::Speaker speaker(std::uint32_t group) {
    return {"Speaker", 1, group};
}

DeviceInfo::Speaker subwoofer(std::uint32_t group = 0) {
    return {"Subwoofer", kSubwoofer, group};
}

using Dimensions = std::vector<std::pair<int, int>>;

Dimensions allDimensions(const std::vector<DeviceInfo::Speaker>& speakers) {
    Dimensions all;
    for (std::uint8_t section = 0; section < kNumberOfSections; ++section) {
        const auto dimensions = sectionDimensions(speakers, section).value_or(SectionDimensions());
        all.emplace_back(dimensions.inputs, dimensions.outputs);
    }
    return all;
}

}  // namespace

TEST(SectionTopologyTest, CountsGroupsAndSubwoofersOfTheDevice) {
    EXPECT_THAT(
        allDimensions({speaker(0), speaker(0), speaker(1), subwoofer()}),
        ElementsAre(Pair(4, 6), Pair(6, 6), Pair(6, 7), Pair(7, 7), Pair(7, 4), Pair(4, 4)));
}

TEST(SectionTopologyTest, HasNoBassChannelWithoutSubwoofer) {
    EXPECT_THAT(
        allDimensions({speaker(0), speaker(0)}),
        ElementsAre(Pair(2, 3), Pair(3, 3), Pair(3, 4), Pair(4, 4), Pair(4, 2), Pair(2, 2)));
}

TEST(SectionTopologyTest, CountsOneBassChannelForSeveralSubwoofers) {
    EXPECT_THAT(
        allDimensions({speaker(0), subwoofer(), subwoofer()}),
        ElementsAre(Pair(2, 3), Pair(3, 3), Pair(3, 4), Pair(4, 4), Pair(4, 3), Pair(3, 3)));
}

TEST(SectionTopologyTest, LeavesTheGroupsOfSubwoofersOut) {
    EXPECT_EQ(allDimensions({speaker(0), subwoofer(7)}), allDimensions({speaker(0), subwoofer(0)}));
}

TEST(SectionTopologyTest, IsEmptyWithoutSpeakers) {
    EXPECT_EQ(allDimensions({}), Dimensions(kNumberOfSections, {0, 0}));
}

TEST(SectionTopologyTest, WrapsCountsAt256) {
    const std::vector<DeviceInfo::Speaker> speakers(257, speaker(0));
    EXPECT_THAT(allDimensions(speakers), ElementsAre(Pair(1, 2), Pair(2, 2), Pair(2, 2), Pair(2, 2),
                                                     Pair(2, 1), Pair(1, 1)));
}

TEST(SectionTopologyTest, KnowsNoSectionBeyondTheLast) {
    EXPECT_FALSE(sectionDimensions({speaker(0)}, 6).has_value());
    EXPECT_FALSE(sectionDimensions({speaker(0)}, 255).has_value());
}
