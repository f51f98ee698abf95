#include "platform/services/ForkedProcess.h"
#include "platform/services/ScratchKey.h"
#include "platform/services/SystemVLock.h"

#include <gtest/gtest.h>

#include <sched.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using platform::SystemVLock;

namespace {

void waitUntil(const std::atomic<bool>& condition) {
    while (!condition)
        std::this_thread::yield();
}

}  // namespace

class SystemVLockTest : public testing::Test {
protected:
    /// A locker that shares nothing but the key with the others.
    bool someoneElseCanLock() const {
        SystemVLock other(key.get());
        const bool locked = other.tryLock();
        if (locked)
            other.unlock();
        return locked;
    }

    ScratchKey key;
    SystemVLock lock{key.get()};
};

TEST_F(SystemVLockTest, IsFreeWhenNew) {
    EXPECT_TRUE(someoneElseCanLock());
}

TEST_F(SystemVLockTest, ExcludesOthersUntilUnlocked) {
    ASSERT_FALSE(lock.lock());
    EXPECT_FALSE(someoneElseCanLock());
    lock.unlock();
    EXPECT_TRUE(someoneElseCanLock());
}

TEST_F(SystemVLockTest, TriedLockExcludesOthersUntilUnlocked) {
    ASSERT_TRUE(lock.tryLock());
    EXPECT_FALSE(someoneElseCanLock());
    lock.unlock();
    EXPECT_TRUE(someoneElseCanLock());
}

TEST_F(SystemVLockTest, DifferentKeysDoNotExcludeEachOther) {
    const ScratchKey otherKey;
    SystemVLock other(otherKey.get());
    ASSERT_FALSE(lock.lock());
    EXPECT_TRUE(other.tryLock());
    other.unlock();
    lock.unlock();
}

TEST_F(SystemVLockTest, CanBeTakenManyTimesInTurn) {
    // More often than the semaphore's largest value and its largest undo.
    for (int i = 0; i < 100'000; ++i) {
        ASSERT_FALSE(lock.lock());
        lock.unlock();
    }
    EXPECT_TRUE(someoneElseCanLock());
}

TEST_F(SystemVLockTest, KilledHolderFreesTheLock) {
    const ProcessShared<std::atomic<bool>> held;
    ForkedProcess holder([&] {
        if (lock.lock())
            return false;
        *held = true;
        return pause() == 0;
    });
    waitUntil(*held);
    EXPECT_FALSE(someoneElseCanLock());
    holder.kill();
    EXPECT_TRUE(someoneElseCanLock());
}

TEST_F(SystemVLockTest, KilledHolderFreesTheLockForAWaiter) {
    const ProcessShared<std::atomic<bool>> held;
    ForkedProcess holder([&] {
        if (lock.lock())
            return false;
        *held = true;
        return pause() == 0;
    });
    waitUntil(*held);
    ForkedProcess waiter([&] { return !lock.lock(); });
    key.waitForBlockedLockers(1);
    holder.kill();
    EXPECT_TRUE(waiter.succeeded());
}

TEST_F(SystemVLockTest, ProcessesThatCreateTheLockAtTheSameTimeExcludeEachOther) {
    constexpr int processCount = 8;
    constexpr int turnsEach = 200;
    for (int round = 0; round < 20; ++round) {
        const ScratchKey newKey;
        const ProcessShared<std::atomic<bool>> go;
        // Read and written back in two steps: turns that overlap lose counts.
        const ProcessShared<std::atomic<int>> turns;
        const auto takeTurns = [&] {
            SystemVLock own(newKey.get());
            waitUntil(*go);
            for (int i = 0; i < turnsEach; ++i) {
                if (own.lock())
                    return false;
                const int before = *turns;
                sched_yield();
                *turns = before + 1;
                own.unlock();
            }
            return true;
        };
        std::vector<std::unique_ptr<ForkedProcess>> processes;
        for (int i = 0; i < processCount; ++i)
            processes.push_back(std::make_unique<ForkedProcess>(takeTurns));
        *go = true;
        for (const auto& process : processes)
            EXPECT_TRUE(process->succeeded());
        EXPECT_EQ(*turns, processCount * turnsEach);
    }
}

TEST_F(SystemVLockTest, CreatorThatDiedAtOnceBlocksNobody) {
    key.createSemaphore(0666);
    ASSERT_FALSE(lock.lock());
    EXPECT_FALSE(someoneElseCanLock());
    lock.unlock();
}

TEST_F(SystemVLockTest, ThreadsWithTheirOwnObjectExcludeEachOther) {
    std::atomic<int> inside{0};
    std::atomic<int> overlaps{0};
    const auto takeTurns = [&] {
        SystemVLock own(key.get());
        for (int i = 0; i < 2000; ++i) {
            ASSERT_FALSE(own.lock());
            overlaps += inside++;
            --inside;
            own.unlock();
        }
    };
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back(takeTurns);
    }
    EXPECT_EQ(overlaps, 0);
}

TEST_F(SystemVLockTest, ThreadsThatShareAnObjectExcludeEachOther) {
    int turns = 0;
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                for (int turn = 0; turn < 2000; ++turn) {
                    ASSERT_FALSE(lock.lock());
                    ++turns;
                    lock.unlock();
                }
            });
        }
    }
    EXPECT_EQ(turns, 8000);
}

TEST_F(SystemVLockTest, InterruptionDoesNotEndTheWait) {
    ASSERT_FALSE(lock.lock());
    ForkedProcess waiter([&] { return !SystemVLock(key.get()).lock(); });
    key.waitForBlockedLockers(1);
    waiter.pauseAndResume();
    key.waitForBlockedLockers(1);
    lock.unlock();
    EXPECT_TRUE(waiter.succeeded());
}

TEST_F(SystemVLockTest, WaitForAForeignSemaphoreIsReportedOnceAndGoesOn) {
    key.createSemaphore(0666);
    key.setSemaphore(3);
    std::atomic<int> reports{0};
    std::string text;
    SystemVLock patient(key.get(), 20ms, [&](const std::string& line) {
        text = line;
        ++reports;
    });
    std::jthread waiter([&] {
        EXPECT_FALSE(patient.lock());
        patient.unlock();
    });
    while (reports == 0)
        std::this_thread::yield();
    key.waitForBlockedLockers(1);
    key.setSemaphore(0);
    waiter.join();
    EXPECT_EQ(reports, 1);
    const std::string id = std::to_string(key.semaphore());
    EXPECT_EQ(text, "Still waiting for the lock with key " + std::to_string(key.get()) +
                        ": semaphore " + id + " is 3, last changed by process " +
                        std::to_string(getpid()) +
                        ". If that process runs no more, remove the semaphore: ipcrm -s " + id);
}

TEST_F(SystemVLockTest, SemaphoreThatIsRemovedOnAdviceEndsTheWait) {
    key.createSemaphore(0666);
    key.setSemaphore(1);
    SystemVLock patient(key.get(), 1ms, [&](const std::string&) { key.removeSemaphore(); });
    EXPECT_FALSE(patient.lock());
    EXPECT_FALSE(someoneElseCanLock());
    patient.unlock();
}

TEST_F(SystemVLockTest, ShortWaitIsNotReported) {
    ASSERT_FALSE(lock.lock());
    SystemVLock patient(key.get(), 1h, [](const std::string& line) { ADD_FAILURE() << line; });
    std::jthread waiter([&] {
        EXPECT_FALSE(patient.lock());
        patient.unlock();
    });
    key.waitForBlockedLockers(1);
    lock.unlock();
}

TEST_F(SystemVLockTest, RemovedSemaphoreIsRecreated) {
    ASSERT_FALSE(lock.lock());
    lock.unlock();
    key.removeSemaphore();
    EXPECT_FALSE(lock.lock());
    EXPECT_FALSE(someoneElseCanLock());
    lock.unlock();
    EXPECT_TRUE(someoneElseCanLock());
}

TEST_F(SystemVLockTest, WaiterOutlivesTheRemovalOfTheSemaphore) {
    ASSERT_FALSE(lock.lock());
    std::jthread waiter([&] {
        SystemVLock own(key.get());
        EXPECT_FALSE(own.lock());
        EXPECT_FALSE(someoneElseCanLock());
        own.unlock();
    });
    key.waitForBlockedLockers(1);
    key.removeSemaphore();
    waiter.join();
    lock.unlock();
    EXPECT_TRUE(someoneElseCanLock());
}

TEST_F(SystemVLockTest, UnlockAfterTheRemovalLeavesTheNewSemaphoreLocked) {
    ASSERT_FALSE(lock.lock());
    key.removeSemaphore();
    SystemVLock newHolder(key.get());
    ASSERT_TRUE(newHolder.tryLock());
    lock.unlock();
    EXPECT_FALSE(someoneElseCanLock());
    newHolder.unlock();
}

TEST_F(SystemVLockTest, SemaphoreOfAnotherUserIsAnError) {
    key.createSemaphore(0);
    ForkedProcess otherUser([&] {
        giveUpRoot();
        return lock.lock() == std::errc::permission_denied && !lock.tryLock();
    });
    EXPECT_TRUE(otherUser.succeeded());
}

TEST_F(SystemVLockTest, EveryUserMayUseTheLock) {
    ASSERT_FALSE(lock.lock());
    lock.unlock();
    ForkedProcess otherUser([&] {
        giveUpRoot();
        return SystemVLock(key.get()).tryLock();
    });
    EXPECT_TRUE(otherUser.succeeded());
}

TEST_F(SystemVLockTest, KeyZeroNamesNoLock) {
    SystemVLock unnamed(0);
    EXPECT_EQ(unnamed.lock(), std::errc::invalid_argument);
    EXPECT_FALSE(unnamed.tryLock());
}
