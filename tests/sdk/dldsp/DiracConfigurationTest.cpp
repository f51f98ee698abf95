#include "sdk/dldsp/DiracConfiguration.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

// The offsets are asserted at compile time where the layout is. These tests read the default
// segment byte by byte, as a reader without the header would.

namespace {

constexpr std::size_t kRecords = 20;
constexpr std::size_t kFirstRecord = 100;
constexpr std::size_t kRecordBytes = 4600;

}  // namespace

class DefaultSegmentTest : public testing::Test {
protected:
    DefaultSegmentTest() { std::memcpy(bytes_.data(), segment_.get(), bytes_.size()); }

    template <typename T>
    T read(std::size_t offset) const {
        T value;
        std::memcpy(&value, bytes_.data() + offset, sizeof(T));
        return value;
    }

    bool isZero(std::size_t from, std::size_t to) const {
        return std::all_of(bytes_.begin() + static_cast<std::ptrdiff_t>(from),
                           bytes_.begin() + static_cast<std::ptrdiff_t>(to),
                           [](unsigned char byte) { return byte == 0; });
    }

private:
    const std::unique_ptr<DiracSegment> segment_ = std::make_unique<DiracSegment>();
    std::vector<unsigned char> bytes_ = std::vector<unsigned char>(139848);
};

TEST_F(DefaultSegmentTest, BeginsWithTheMagic) {
    EXPECT_EQ(read<std::uint32_t>(0), 0x83474453U);
    EXPECT_EQ(read<std::uint32_t>(4), 0U);
}

TEST_F(DefaultSegmentTest, HasNoTimeAndNoSpeakers) {
    EXPECT_TRUE(isZero(8, 100));
}

TEST_F(DefaultSegmentTest, EachOfTheTwentyRecordsPassesItsSignalUnchanged) {
    for (std::size_t record = 0; record < kRecords; ++record) {
        const std::size_t begin = kFirstRecord + record * kRecordBytes;
        EXPECT_EQ(read<std::uint32_t>(begin), 0U);
        EXPECT_EQ(read<std::uint32_t>(begin + 4), 1U);
        EXPECT_EQ(read<std::uint32_t>(begin + 8), 0U);
        EXPECT_EQ(read<float>(begin + 12), 1.0F);
        EXPECT_TRUE(isZero(begin + 16, begin + 4596)) << "record " << record;
        EXPECT_EQ(read<float>(begin + 4596), 1.0F);
    }
}

TEST_F(DefaultSegmentTest, NamesTheFourRatesWithoutData) {
    EXPECT_EQ(read<std::uint32_t>(92100), 88200U);
    EXPECT_EQ(read<std::uint32_t>(92104), 96000U);
    EXPECT_EQ(read<std::uint32_t>(92108), 176400U);
    EXPECT_EQ(read<std::uint32_t>(92112), 192000U);
    EXPECT_TRUE(isZero(92116, 108516));
}

TEST_F(DefaultSegmentTest, HasNoBassControl) {
    EXPECT_TRUE(isZero(108516, 139844));
}

TEST_F(DefaultSegmentTest, IsBypassed) {
    EXPECT_EQ(read<std::uint8_t>(139844), 1U);
    EXPECT_TRUE(isZero(139845, 139848));
}
