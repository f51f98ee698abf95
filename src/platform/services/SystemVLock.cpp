#include "platform/services/SystemVLock.h"

#include <sys/ipc.h>
#include <sys/sem.h>

#include <array>
#include <cerrno>
#include <span>

namespace platform {
namespace {

constexpr int kReadableAndWritableByAll = 0666;

std::error_code lastError() {
    return {errno, std::system_category()};
}

/// Runs the operations as one, again when a signal interrupts the wait.
std::error_code operate(int id, std::span<sembuf> operations) {
    while (semop(id, operations.data(), operations.size()) != 0) {
        if (errno != EINTR)
            return lastError();
    }
    return {};
}

bool wasRemoved(const std::error_code& error) {
    return error == std::errc::identifier_removed || error == std::errc::invalid_argument;
}

}  // namespace

std::error_code SystemVLock::lock() {
    std::unique_lock guard(mutex_);
    const std::error_code error = acquire(0);
    if (!error)
        guard.release();
    return error;
}

bool SystemVLock::tryLock() {
    std::unique_lock guard(mutex_, std::try_to_lock);
    if (!guard || acquire(IPC_NOWAIT))
        return false;
    guard.release();
    return true;
}

void SystemVLock::unlock() {
    const std::unique_lock guard(mutex_, std::adopt_lock);
    std::array give{sembuf{0, -1, IPC_NOWAIT | SEM_UNDO}};
    // Fails only when the semaphore was removed meanwhile: then there is nothing to give back.
    (void)operate(id_, give);
}

std::error_code SystemVLock::acquire(short flags) {
    std::array take{sembuf{0, 0, flags}, sembuf{0, 1, SEM_UNDO}};
    while (true) {
        if (const std::error_code error = open())
            return error;
        const std::error_code error = operate(id_, take);
        if (!wasRemoved(error))
            return error;
        id_ = -1;
    }
}

std::error_code SystemVLock::open() {
    if (id_ >= 0)
        return {};
    if (key_ == IPC_PRIVATE)
        return std::make_error_code(std::errc::invalid_argument);
    id_ = semget(key_, 1, IPC_CREAT | kReadableAndWritableByAll);
    return id_ >= 0 ? std::error_code{} : lastError();
}

}  // namespace platform
