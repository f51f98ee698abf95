#include "roomsim/SpeakerRing.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

namespace roomsim {
namespace {

class SpeakerRingTest : public testing::Test {
protected:
    SpeakerRingTest() { ring.setRate(48000, 0); }

    /// Writes the frame numbers themselves; the second speaker gets them negative.
    void write(std::int64_t frame, std::size_t count) {
        std::vector<float> left(count);
        std::iota(left.begin(), left.end(), static_cast<float>(frame));
        std::vector<float> right(count);
        for (std::size_t i = 0; i < count; ++i)
            right[i] = -left[i];
        const float* const source[] = {left.data(), right.data()};
        ring.write(frame, source, count);
    }

    std::vector<float> readLeft(std::int64_t frame, std::size_t count) {
        std::vector<float> left(count, 99.0F);
        std::vector<float> right(count, 99.0F);
        float* const target[] = {left.data(), right.data()};
        ring.read(frame, target, count);
        for (std::size_t i = 0; i < count; ++i)
            EXPECT_EQ(right[i], -left[i]);
        return left;
    }

    using Frames = std::vector<float>;

    std::vector<float> samples = std::vector<float>(2 * 16, 77.0F);
    SpeakerRingState state{2, 0, 16, 0, 0};
    SpeakerRing ring{state, samples.data()};
};

TEST_F(SpeakerRingTest, GivesBackWhatWasWritten) {
    write(0, 5);
    EXPECT_EQ(readLeft(0, 5), (Frames{0, 1, 2, 3, 4}));
}

TEST_F(SpeakerRingTest, IsSilentBeforeAndAfter) {
    write(3, 2);
    EXPECT_EQ(readLeft(-2, 9), (Frames{0, 0, 0, 0, 0, 3, 4, 0, 0}));
}

TEST_F(SpeakerRingTest, IsSilentWhereFramesWereLeftOut) {
    write(0, 3);
    write(6, 2);
    EXPECT_EQ(readLeft(0, 9), (Frames{0, 1, 2, 0, 0, 0, 6, 7, 0}));
}

TEST_F(SpeakerRingTest, ForgetsAfterItsCapacityAndGoesOn) {
    for (std::int64_t frame = 0; frame < 100; frame += 5)
        write(frame, 5);
    EXPECT_EQ(readLeft(82, 4), (Frames{0, 0, 84, 85}));
    EXPECT_EQ(readLeft(97, 5), (Frames{97, 98, 99, 0, 0}));
}

TEST_F(SpeakerRingTest, SilenceLongerThanTheRingLeavesNothingOld) {
    write(0, 16);
    write(1000, 1);
    EXPECT_EQ(readLeft(984, 18), (Frames{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1000, 0}));
}

TEST_F(SpeakerRingTest, DroppedFramesAreSilent) {
    write(0, 10);
    ring.truncate(4);
    EXPECT_EQ(readLeft(2, 4), (Frames{2, 3, 0, 0}));
}

TEST_F(SpeakerRingTest, RewrittenFramesEndWhatIsWritten) {
    write(0, 10);
    write(4, 2);
    EXPECT_EQ(readLeft(3, 5), (Frames{3, 4, 5, 0, 0}));
}

TEST_F(SpeakerRingTest, TheSameRateKeepsTheFramesAnotherOneDropsThem) {
    write(0, 4);
    ring.setRate(48000, 4);
    EXPECT_EQ(readLeft(2, 2), (Frames{2, 3}));
    ring.setRate(96000, 8);
    EXPECT_EQ(readLeft(2, 2), (Frames{0, 0}));
}

}  // namespace
}  // namespace roomsim
