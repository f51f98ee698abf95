#include "platform/services/SystemVLock.h"

#include <sys/ipc.h>
#include <sys/sem.h>

#include <array>
#include <cerrno>
#include <ctime>
#include <iostream>
#include <span>

namespace platform {
namespace {

constexpr int kReadableAndWritableByAll = 0666;

std::error_code lastError() {
    return {errno, std::system_category()};
}

/// Waits for 0 and adds 1.
std::array<sembuf, 2> taking(short flags) {
    return {sembuf{0, 0, flags}, sembuf{0, 1, SEM_UNDO}};
}

timespec timespecOf(std::chrono::milliseconds duration) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(duration);
    return {seconds.count(), std::chrono::nanoseconds(duration - seconds).count()};
}

/// Runs the operations as one, again when a signal interrupts the wait. Without `timeout` it waits
/// as long as it takes.
std::error_code operate(int id, std::span<sembuf> operations, const timespec* timeout = nullptr) {
    while (semtimedop(id, operations.data(), operations.size(), timeout) != 0) {
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
    const std::error_code error = onSemaphore([this] { return take(); });
    if (!error)
        guard.release();
    return error;
}

bool SystemVLock::tryLock() {
    std::unique_lock guard(mutex_, std::try_to_lock);
    if (!guard || onSemaphore([this] { return takeIfFree(); }))
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

template <typename Operation>
std::error_code SystemVLock::onSemaphore(const Operation& operation) {
    while (true) {
        if (const std::error_code error = open())
            return error;
        const std::error_code error = operation();
        if (!wasRemoved(error))
            return error;
        id_ = -1;
    }
}

std::error_code SystemVLock::take() const {
    auto operations = taking(0);
    const timespec patience = timespecOf(patience_);
    const std::error_code error = operate(id_, operations, &patience);
    if (error != std::errc::resource_unavailable_try_again)
        return error;
    reportWait();
    return operate(id_, operations);
}

std::error_code SystemVLock::takeIfFree() const {
    auto operations = taking(IPC_NOWAIT);
    return operate(id_, operations);
}

void SystemVLock::reportWait() const {
    const std::string id = std::to_string(id_);
    report_("Still waiting for the lock with key " + std::to_string(key_) + ": semaphore " + id +
            " is " + std::to_string(semctl(id_, 0, GETVAL)) + ", last changed by process " +
            std::to_string(semctl(id_, 0, GETPID)) +
            ". If that process runs no more, remove the semaphore: ipcrm -s " + id);
}

void SystemVLock::printToStandardError(const std::string& text) {
    std::cerr << text + '\n';
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
