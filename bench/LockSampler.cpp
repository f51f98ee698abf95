#include "LockSampler.h"

#include <sys/sem.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

int openSemaphore(int key) {
    const int id = semget(key, 0, 0);
    if (id < 0)
        throw std::system_error(errno, std::generic_category(), "lock");
    return id;
}

bool isHeld(int id) {
    return semctl(id, 0, GETVAL) > 0;
}

}  // namespace

LockSampler::LockSampler(int key) : id_(openSemaphore(key)), thread_([this] { watch(); }) {
}

LockSampler::~LockSampler() {
    finish();
}

std::vector<LockSampler::Duration> LockSampler::finish() {
    running_ = false;
    if (thread_.joinable())
        thread_.join();
    return std::exchange(holds_, {});
}

void LockSampler::watch() {
    while (running_) {
        if (!isHeld(id_))
            continue;
        const auto taken = Clock::now();
        while (isHeld(id_)) {
        }
        holds_.emplace_back(Clock::now() - taken);
    }
}
