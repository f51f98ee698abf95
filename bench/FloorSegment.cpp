#include "FloorSegment.h"

#include <sys/shm.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>
#include <system_error>

namespace {

int createSegment() {
    const int id = shmget(FloorSegment::kKey, sizeof(DiracSegment), IPC_CREAT | 0600);
    if (id < 0)
        throw std::system_error(errno, std::generic_category(), "shmget");
    return id;
}

DiracSegment* attach(int id) {
    void* const address = shmat(id, nullptr, 0);
    if (reinterpret_cast<std::intptr_t>(address) == -1)
        throw std::system_error(errno, std::generic_category(), "shmat");
    return new (address) DiracSegment;
}

}  // namespace

FloorSegment::FloorSegment() : id_(createSegment()), segment_(attach(id_)) {
}

FloorSegment::~FloorSegment() {
    shmdt(segment_);
    shmctl(id_, IPC_RMID, nullptr);
}

void FloorSegment::publish(float tap) {
    const auto image = std::make_unique<DiracConfiguration>();
    image->groups.back().back().taps[0] = tap;
    if (!lock_.lock())
        return;
    std::memcpy(&segment_->configuration, image.get(), sizeof *image);
    lock_.unlock();
}
