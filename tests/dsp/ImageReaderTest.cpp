#include "dsp/ImageReader.h"
#include "dsp/TestImage.h"
#include "sdk/services/SharedLock.h"
#include "segment/TestSegment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/sem.h>
#include <sys/shm.h>

#include <optional>

namespace dsp {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

class ImageReaderTest : public testing::Test {
protected:
    void publish(std::uint32_t speakers) {
        if (!segment_)
            segment_.emplace(key_);
        DiracConfiguration image;
        image.bypass = 0;
        image.speakerCount = speakers;
        image.timeStamp = ++stamp_;
        segment_->publish(image);
    }

    const int key_ = unusedKey();
    std::optional<TestSegment> segment_;
    std::int64_t stamp_{0};
    ImageReader reader_{key_};
};

TEST_F(ImageReaderTest, BeginsWithBypass) {
    EXPECT_EQ(reader_.image().bypass, 1);
}

TEST_F(ImageReaderTest, TakesOverWhatTheSegmentHolds) {
    publish(2);
    EXPECT_TRUE(reader_.poll());
    EXPECT_EQ(reader_.image().speakerCount, 2U);
    EXPECT_THAT(reader_.problem(), IsEmpty());
}

TEST_F(ImageReaderTest, TellsAChangeOnce) {
    publish(2);
    EXPECT_TRUE(reader_.poll());
    EXPECT_FALSE(reader_.poll());
    publish(3);
    EXPECT_TRUE(reader_.poll());
    EXPECT_EQ(reader_.image().speakerCount, 3U);
}

TEST_F(ImageReaderTest, ANewTimeStampAloneIsNoChange) {
    publish(2);
    reader_.poll();
    publish(2);
    EXPECT_FALSE(reader_.poll());
    EXPECT_EQ(reader_.image().timeStamp, stamp_);
}

TEST_F(ImageReaderTest, AChangeWithinAMillisecondIsSeen) {
    publish(2);
    reader_.poll();
    --stamp_;
    publish(3);
    EXPECT_TRUE(reader_.poll());
}

TEST_F(ImageReaderTest, KeepsTheImageWhileTheLockIsHeld) {
    publish(2);
    reader_.poll();
    SharedLock lock(key_);
    ASSERT_TRUE(lock.lock());
    publish(3);
    EXPECT_FALSE(reader_.poll());
    EXPECT_EQ(reader_.image().speakerCount, 2U);
    lock.unlock();
    EXPECT_TRUE(reader_.poll());
    EXPECT_EQ(reader_.image().speakerCount, 3U);
}

TEST_F(ImageReaderTest, WithoutASegmentItBypassesAndCreatesNothing) {
    EXPECT_FALSE(reader_.poll());
    EXPECT_THAT(reader_.problem(), HasSubstr("there is no segment"));
    EXPECT_LT(shmget(key_, 0, 0), 0);
    EXPECT_LT(semget(key_, 0, 0), 0);
}

TEST_F(ImageReaderTest, FollowsRemovalAndReturn) {
    publish(2);
    reader_.poll();
    segment_.reset();
    EXPECT_TRUE(reader_.poll());
    EXPECT_EQ(reader_.image().bypass, 1);
    publish(2);
    EXPECT_TRUE(reader_.poll());
    EXPECT_EQ(reader_.image().bypass, 0);
}

TEST_F(ImageReaderTest, AForeignSegmentIsBypass) {
    publish(2);
    reader_.poll();
    segment_->write({0x12345678, 0, {}});
    EXPECT_TRUE(reader_.poll());
    EXPECT_EQ(reader_.image().bypass, 1);
    EXPECT_THAT(reader_.problem(), HasSubstr("begins with 0x12345678"));
}

TEST_F(ImageReaderTest, ASegmentOfAnotherSizeIsBypass) {
    segment_.emplace(key_, 4096);
    EXPECT_FALSE(reader_.poll());
    EXPECT_THAT(reader_.problem(), HasSubstr("4096 bytes"));
}

TEST_F(ImageReaderTest, StaysAttachedUntilItLeaves) {
    publish(2);
    reader_.poll();
    reader_.poll();
    EXPECT_EQ(segment_->otherAttachments(), 1U);
    reader_.detach();
    EXPECT_EQ(segment_->otherAttachments(), 0U);
    EXPECT_EQ(reader_.image().speakerCount, 2U);
    EXPECT_FALSE(reader_.poll());
    EXPECT_EQ(segment_->otherAttachments(), 1U);
}

TEST_F(ImageReaderTest, FollowsASegmentThatIsMadeAnewAtOnce) {
    publish(2);
    reader_.poll();
    segment_.reset();
    publish(3);
    EXPECT_TRUE(reader_.poll());
    EXPECT_EQ(reader_.image().speakerCount, 3U);
    EXPECT_EQ(segment_->otherAttachments(), 1U);
}

TEST_F(ImageReaderTest, NeedsNoLockWhenNothingHasChangedForLong) {
    publish(2);
    for (int i = 0; i < 600; ++i)
        reader_.poll();
    semctl(semget(key_, 0, 0), 0, IPC_RMID);
    EXPECT_FALSE(reader_.poll());
    EXPECT_FALSE(segment_->hasLock());
    publish(3);
    EXPECT_TRUE(reader_.poll());
    EXPECT_TRUE(segment_->hasLock());
}

}  // namespace
}  // namespace dsp
