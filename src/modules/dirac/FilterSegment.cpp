#include "modules/dirac/FilterSegment.h"

#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <new>
#include <optional>
#include <string>

namespace {

constexpr int kPermissions = 0666;

void print(const char* function, const std::string& text) {
    std::cerr << function << text << '\n';
}

/// " … with key '1234'"
std::string withKey(const std::string& text, int key) {
    return text + " with key '" + std::to_string(key) + "'";
}

std::optional<shmid_ds> statusOf(int id) {
    shmid_ds status{};
    if (shmctl(id, IPC_STAT, &status) != 0)
        return std::nullopt;
    return status;
}

}  // namespace

FilterSegment::FilterSegment(int segmentKey) : lock(segmentKey), key(segmentKey) {
}

FilterSegment::~FilterSegment() {
    sharedMemDiscard();
}

bool FilterSegment::sharedMemInit(bool& created) {
    created = false;
    errno = 0;
    // A failure's result is whether errno is set; only a foreign magic gives false.
    if (!open() || !attach())
        return errno != 0;
    // The DSP must not wait for a page. Without the right to lock memory it has to.
    static_cast<void>(mlock(address, sizeof(DiracSegment)));
    return adopt(created);
}

/// Finds or creates the segment. A segment of another size that nobody uses makes room.
bool FilterSegment::open() {
    do {
        shmId = shmget(key, sizeof(DiracSegment), IPC_CREAT | kPermissions);
    } while (shmId < 0 && errno == EINVAL && removeUnused());
    if (shmId >= 0)
        return true;
    const int error = errno;
    print("sharedMemInit", withKey("(): failed to attach to existing shared memory segment", key) +
                               ", errno: " + std::to_string(error) + ": " + std::strerror(error));
    errno = error;
    return false;
}

bool FilterSegment::removeUnused() const {
    const int unused = shmget(key, 0, kPermissions);
    if (unused < 0)
        return false;
    const auto status = statusOf(unused);
    return status && status->shm_nattch == 0 && shmctl(unused, IPC_RMID, nullptr) == 0;
}

bool FilterSegment::attach() {
    void* const memory = shmat(shmId, nullptr, 0);
    if (reinterpret_cast<std::intptr_t>(memory) != -1) {
        address = static_cast<DiracSegment*>(memory);
        return true;
    }
    const int error = errno;
    print("sharedMemInit", withKey("(): failed to attach to shared memory segment", key) +
                               ", err = " + std::to_string(-error));
    sharedMemDiscard();
    shmId = -1;
    errno = error;
    return false;
}

/// Fills a segment that nobody else has, accepts one with our magic, gives back any other.
bool FilterSegment::adopt(bool& created) {
    const auto status = statusOf(shmId);
    if (!status) {
        const int error = errno;
        print("sharedMemInit",
              withKey("(): failed to retrieve stats about shared memory segment", key));
        sharedMemDiscard();
        return error != 0;
    }
    if (status->shm_nattch == 1) {
        new (address) DiracSegment;
        created = true;
        return true;
    }
    if (address->magic == DiracSegment::kMagic)
        return true;
    print("sharedMemInit", "() failed, magic ID mismatch!");
    sharedMemDiscard();
    return false;
}

void FilterSegment::sharedMemDiscard() {
    if (shmId < 0 || !address)
        return;
    const auto status = statusOf(shmId);
    if (!status)
        print("sharedMemDiscard",
              withKey("(): failed to retrieve stats about shared memory segment", key));
    const bool isLast = status && status->shm_nattch == 1;
    const bool isDetached = detach();
    if (isLast ? remove() : isDetached)
        shmId = -1;
}

bool FilterSegment::detach() {
    if (shmdt(address) == 0) {
        address = nullptr;
        return true;
    }
    print("sharedMemDiscard", withKey("(): failed to detach from shared memory segment", key));
    return false;
}

bool FilterSegment::remove() const {
    if (shmctl(shmId, IPC_RMID, nullptr) == 0)
        return true;
    print("sharedMemDiscard", withKey("(): failed to destroy shared memory segment", key));
    return false;
}

void FilterSegment::publish(const DiracConfiguration& configuration) {
    if (shmId < 0 || !address) {
        print("set", "(): failed to set new value, shared memory handle is not valid");
        return;
    }
    if (!lock.lock()) {
        print("set", "(): failed to set new value, shared memory lock is not available");
        return;
    }
    std::memcpy(&address->configuration, &configuration, sizeof configuration);
    lock.unlock();
}
