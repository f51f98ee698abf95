#include "segment/SegmentWatch.h"
#include "segment/TestSegment.h"

#include <gtest/gtest.h>

#include <optional>

namespace segment {
namespace {

using Kind = SegmentChange::Kind;

class SegmentWatchTest : public testing::Test {
protected:
    void publish(std::int64_t stamp, std::uint8_t bypass = 1) {
        if (!segment_)
            segment_.emplace(key_);
        DiracConfiguration image;
        image.timeStamp = stamp;
        image.bypass = bypass;
        segment_->publish(image);
    }
    void overwrite() { segment_->write({1, 0, {}}); }
    void remove() { segment_.reset(); }

    void expectNews(Kind kind) {
        const auto change = watch_.poll();
        ASSERT_TRUE(change);
        EXPECT_EQ(change->kind, kind);
        EXPECT_EQ(change->image != nullptr, kind == Kind::Image);
        EXPECT_EQ(change->error.empty(), kind == Kind::Image);
    }
    void expectImage(std::int64_t stamp) {
        const auto change = watch_.poll();
        ASSERT_TRUE(change && change->image);
        EXPECT_EQ(change->image->timeStamp, stamp);
    }
    void expectNoNews() { EXPECT_FALSE(watch_.poll()); }

private:
    const int key_ = unusedKey();
    std::optional<TestSegment> segment_;
    SegmentWatch watch_{key_};
};

TEST_F(SegmentWatchTest, ReportsEachImageOnce) {
    publish(1);
    expectImage(1);
    expectNoNews();
    publish(2);
    expectImage(2);
    expectNoNews();
}

TEST_F(SegmentWatchTest, SeesTwoImagesOfTheSameMillisecond) {
    publish(1, 1);
    expectImage(1);
    publish(1, 0);
    expectImage(1);
}

TEST_F(SegmentWatchTest, OutlivesTheSegment) {
    expectNews(Kind::Absent);
    expectNoNews();
    publish(1);
    expectImage(1);
    remove();
    expectNews(Kind::Absent);
    publish(1);
    expectImage(1);
}

TEST_F(SegmentWatchTest, ReportsAForeignSegmentOnce) {
    publish(1);
    expectImage(1);
    overwrite();
    expectNews(Kind::Unreadable);
    expectNoNews();
    publish(2);
    expectImage(2);
}

}  // namespace
}  // namespace segment
