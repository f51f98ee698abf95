#include "platform/player/FrameRing.h"

#include <gmock/gmock.h>

#include <numeric>
#include <thread>
#include <vector>

using platform::FrameRing;
using testing::ElementsAre;

namespace {

std::vector<std::int32_t> take(FrameRing& ring, std::size_t most) {
    std::vector<std::int32_t> samples(most);
    samples.resize(ring.read(samples));
    return samples;
}

}  // namespace

TEST(FrameRingTest, IsEmptyAtFirst) {
    FrameRing ring(4);
    EXPECT_EQ(ring.room(), 4U);
    EXPECT_TRUE(take(ring, 4).empty());
}

TEST(FrameRingTest, GivesWhatWasWrittenInItsOrder) {
    FrameRing ring(4);
    ring.write(std::vector<std::int32_t>{1, 2, 3});
    EXPECT_EQ(ring.room(), 1U);
    EXPECT_THAT(take(ring, 2), ElementsAre(1, 2));
    ring.write(std::vector<std::int32_t>{4, 5, 6});
    EXPECT_EQ(ring.room(), 0U);
    EXPECT_THAT(take(ring, 9), ElementsAre(3, 4, 5, 6));
}

TEST(FrameRingTest, NothingIsLostBetweenTwoThreads) {
    constexpr std::int32_t kCount = 200'000;
    FrameRing ring(100);
    std::jthread writer([&ring] {
        std::vector<std::int32_t> piece;
        for (std::int32_t next = 0; next < kCount;) {
            piece.resize(std::min<std::size_t>({ring.room(), 37, std::size_t(kCount - next)}));
            std::iota(piece.begin(), piece.end(), next);
            ring.write(piece);
            next += static_cast<std::int32_t>(piece.size());
            if (piece.empty())
                std::this_thread::yield();
        }
    });
    std::int32_t expected = 0;
    while (expected < kCount) {
        const auto samples = take(ring, 23);
        for (const std::int32_t sample : samples)
            ASSERT_EQ(sample, expected++);
        if (samples.empty())
            std::this_thread::yield();
    }
}
