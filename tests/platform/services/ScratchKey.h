#pragma once

#include <gtest/gtest.h>

#include <sys/ipc.h>
#include <sys/sem.h>

#include <random>
#include <thread>

/// A System V key that nothing uses; its semaphore is removed in the end.
class ScratchKey {
public:
    ScratchKey() {
        std::random_device random;
        std::uniform_int_distribution<int> keys(1);
        do
            key_ = keys(random);
        while (semaphore() >= 0);
    }
    ~ScratchKey() { removeSemaphore(); }
    ScratchKey(const ScratchKey&) = delete;
    ScratchKey& operator=(const ScratchKey&) = delete;

    int get() const { return key_; }

    /// -1: there is none.
    int semaphore() const { return semget(key_, 0, 0); }

    void createSemaphore(int permissions) const {
        ASSERT_GE(semget(key_, 1, IPC_CREAT | IPC_EXCL | permissions), 0);
    }

    void setSemaphore(int value) const { ASSERT_EQ(semctl(semaphore(), 0, SETVAL, value), 0); }

    void removeSemaphore() const {
        if (semaphore() >= 0)
            semctl(semaphore(), 0, IPC_RMID);
    }

    void waitForBlockedLockers(int count) const {
        while (semctl(semaphore(), 0, GETZCNT) != count)
            std::this_thread::yield();
    }

private:
    int key_{0};
};
