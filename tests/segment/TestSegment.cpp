#include "segment/TestSegment.h"

#include <gtest/gtest.h>

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>

#include <cerrno>
#include <cstring>
#include <random>
#include <system_error>

namespace {

bool isUnused(int key) {
    return shmget(key, 0, 0) < 0 && errno == ENOENT && semget(key, 0, 0) < 0 && errno == ENOENT;
}

int createSegment(int key, std::size_t size) {
    const int id = shmget(key, size, IPC_CREAT | IPC_EXCL | 0600);
    if (id < 0)
        throw std::system_error(errno, std::generic_category(), "shmget");
    return id;
}

}  // namespace

int unusedKey() {
    std::random_device random;
    std::uniform_int_distribution<int> keys(0x10000, 0x7fffffff);
    int key = keys(random);
    while (!isUnused(key))
        key = keys(random);
    return key;
}

TestSegment::TestSegment(int key, std::size_t size)
    : key_(key), id_(createSegment(key, size)), address_(shmat(id_, nullptr, 0)) {
}

TestSegment::~TestSegment() {
    shmdt(address_);
    shmctl(id_, IPC_RMID, nullptr);
    const int lock = semget(key_, 0, 0);
    if (lock >= 0)
        semctl(lock, 0, IPC_RMID);
}

void TestSegment::write(const DiracSegment& content) {
    std::memcpy(address_, &content, sizeof(content));
}

void TestSegment::publish(const DiracConfiguration& image) {
    write({DiracSegment::kMagic, 0, image});
}

int TestSegment::lockWaiters() const {
    return semctl(semget(key_, 0, 0), 0, GETZCNT);
}

bool TestSegment::hasLock() const {
    return semget(key_, 0, 0) >= 0;
}

std::size_t TestSegment::otherAttachments() const {
    shmid_ds status{};
    EXPECT_EQ(shmctl(id_, IPC_STAT, &status), 0);
    return status.shm_nattch - 1;
}
