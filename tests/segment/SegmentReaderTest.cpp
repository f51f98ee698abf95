#include "sdk/services/SharedLock.h"
#include "segment/SegmentReader.h"
#include "segment/TestSegment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/sem.h>
#include <sys/shm.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <future>
#include <span>
#include <thread>

namespace segment {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Property;
using testing::Throws;

template <typename Error, typename... Texts>
auto throwsWith(const Texts&... texts) {
    return Throws<Error>(Property(&std::exception::what, AllOf(HasSubstr(texts)...)));
}

DiracConfiguration stampedImage(std::int64_t stamp) {
    DiracConfiguration image;
    image.timeStamp = stamp;
    return image;
}

bool holds(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::yield();
    }
    return true;
}

TEST(SegmentReader, ReturnsTheImageByteByByte) {
    TestSegment segment(unusedKey());
    auto image = stampedImage(77);
    image.speakerCount = 2;
    image.groups[1][9].taps[1023] = 0.1F;
    image.bypass = 0;
    segment.publish(image);
    const auto read = SegmentReader(segment.key()).read();
    EXPECT_TRUE(std::ranges::equal(std::as_bytes(std::span(read.get(), 1)),
                                   std::as_bytes(std::span(&image, 1))));
}

TEST(SegmentReader, MissingSegmentIsReportedAndNothingIsCreated) {
    const int key = unusedKey();
    SegmentReader reader(key);
    EXPECT_THAT([&] { reader.read(); },
                throwsWith<SegmentAbsent>("no segment with key " + std::to_string(key)));
    EXPECT_LT(shmget(key, 0, 0), 0);
    EXPECT_LT(semget(key, 0, 0), 0);
}

TEST(SegmentReader, WrongSizeIsRefusedWithoutTakingTheLock) {
    for (const std::size_t size :
         {std::size_t{4}, sizeof(DiracSegment) - 1, sizeof(DiracSegment) + 1}) {
        const TestSegment segment(unusedKey(), size);
        EXPECT_THAT([&] { SegmentReader(segment.key()).read(); },
                    throwsWith<SegmentError>(std::to_string(segment.key()),
                                             std::to_string(size) + " bytes, not 139848"));
        EXPECT_FALSE(segment.hasLock());
    }
}

TEST(SegmentReader, ForeignContentIsRefused) {
    TestSegment segment(unusedKey());
    segment.write({0x0000beef, 0, {}});
    EXPECT_THAT([&] { SegmentReader(segment.key()).read(); },
                throwsWith<SegmentError>("begins with 0x0000beef, not 0x83474453",
                                         std::to_string(segment.key())));
}

TEST(SegmentReader, WaitsForTheLockAndReadsTheFinishedImage) {
    TestSegment segment(unusedKey());
    segment.publish(stampedImage(1));
    SharedLock lock(segment.key());
    ASSERT_TRUE(lock.lock());
    auto stamp = std::async(std::launch::async,
                            [&] { return SegmentReader(segment.key()).read()->timeStamp; });
    EXPECT_TRUE(holds([&] { return segment.lockWaiters() == 1; }));
    segment.publish(stampedImage(2));
    lock.unlock();
    EXPECT_EQ(stamp.get(), 2);
}

TEST(SegmentReader, IsNotAttachedWhileItWaitsOrAfterwards) {
    TestSegment segment(unusedKey());
    segment.publish(stampedImage(1));
    SegmentReader reader(segment.key());
    SharedLock lock(segment.key());
    ASSERT_TRUE(lock.lock());
    auto read = std::async(std::launch::async, [&] { reader.read(); });
    EXPECT_TRUE(holds([&] { return segment.lockWaiters() == 1; }));
    EXPECT_EQ(segment.otherAttachments(), 0U);
    lock.unlock();
    read.get();
    EXPECT_EQ(segment.otherAttachments(), 0U);
}

TEST(SegmentReader, NoticesThatTheSegmentWentWhileItWaited) {
    auto segment = std::make_unique<TestSegment>(unusedKey());
    segment->publish(stampedImage(1));
    const int key = segment->key();
    SharedLock lock(key);
    ASSERT_TRUE(lock.lock());
    auto read = std::async(std::launch::async, [&] { SegmentReader(key).read(); });
    EXPECT_TRUE(holds([&] { return segment->lockWaiters() == 1; }));
    shmctl(segment->id(), IPC_RMID, nullptr);
    lock.unlock();
    EXPECT_THROW(read.get(), SegmentAbsent);
}

TEST(SegmentReader, FollowsASegmentThatIsRemovedAndMadeAgain) {
    const int key = unusedKey();
    SegmentReader reader(key);
    {
        TestSegment first(key);
        first.publish(stampedImage(1));
        EXPECT_EQ(reader.read()->timeStamp, 1);
    }
    EXPECT_THROW(reader.read(), SegmentAbsent);
    TestSegment second(key);
    second.publish(stampedImage(2));
    EXPECT_EQ(reader.read()->timeStamp, 2);
}

}  // namespace
}  // namespace segment
