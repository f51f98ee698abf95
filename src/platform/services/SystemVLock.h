#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <system_error>
#include <utility>

namespace platform {

/// A lock between processes: one System V semaphore, found by its key.
///
/// The semaphore counts the holders: 0 is free, 1 is held. A new semaphore is 0, so it is ready for
/// use the moment it exists; processes that create it at the same time need not agree on who
/// initialises it, and none can die half-way. Taking the lock is one atomic operation (wait for 0,
/// add 1), and its undo is the kernel's when the holder ends without giving the lock back.
///
/// Processes, threads and objects with the same key exclude each other. Not recursive.
class SystemVLock {
public:
    /// Takes a line of text for whoever looks after the device.
    using Report = std::function<void(const std::string&)>;

    /// `key` must not be 0, which in System V means "private to whoever asks". Opens nothing yet.
    ///
    /// A wait that lasts longer than `patience` is reported, once, and goes on: a semaphore that
    /// another program left behind, never to become 0, would stop everything without a word.
    /// `report` is called in the thread that waits; by default it prints to standard error.
    explicit SystemVLock(int key, std::chrono::milliseconds patience = std::chrono::seconds(3),
                         Report report = printToStandardError)
        : key_(key), patience_(patience), report_(std::move(report)) {}
    SystemVLock(const SystemVLock&) = delete;
    SystemVLock& operator=(const SystemVLock&) = delete;

    /// Waits for the lock. The error says why the system cannot provide it, for example that
    /// another user's semaphore may not be used; then the lock is not held.
    [[nodiscard]] std::error_code lock();

    /// Takes the lock if nobody holds it; never waits. False when it is held or cannot be provided.
    [[nodiscard]] bool tryLock();

    /// Gives the lock back, in the thread that took it.
    void unlock();

private:
    static void printToStandardError(const std::string& text);

    /// Runs an operation on the open semaphore, again when the semaphore was removed meanwhile.
    template <typename Operation>
    std::error_code onSemaphore(const Operation& operation);
    std::error_code open();
    std::error_code take() const;
    std::error_code takeIfFree() const;
    void reportWait() const;

    const int key_;
    const std::chrono::milliseconds patience_;
    const Report report_;
    /// Held together with the semaphore, so that an unlock meets the semaphore that was locked even
    /// when that one has been removed and its place taken by a new one.
    std::mutex mutex_;
    int id_{-1};  ///< guarded by mutex_; -1: not opened
};

}  // namespace platform
