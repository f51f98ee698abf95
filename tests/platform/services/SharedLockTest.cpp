#include "platform/services/ForkedProcess.h"
#include "platform/services/ScratchKey.h"
#include "platform/services/SystemVLock.h"
#include "sdk/services/SharedLock.h"

#include <gtest/gtest.h>

using platform::SystemVLock;

class SharedLockTest : public testing::Test {
protected:
    ScratchKey key;
    SharedLock lock{key.get()};
};

TEST_F(SharedLockTest, ExcludesOthersUntilUnlocked) {
    SystemVLock other(key.get());
    ASSERT_TRUE(lock.lock());
    EXPECT_FALSE(other.tryLock());
    lock.unlock();
    EXPECT_TRUE(other.tryLock());
    other.unlock();
}

TEST_F(SharedLockTest, LockTellsWhenTheSystemCannotProvideIt) {
    key.createSemaphore(0);
    ForkedProcess otherUser([&] {
        giveUpRoot();
        return !lock.lock();
    });
    EXPECT_TRUE(otherUser.succeeded());
}
