#pragma once

#include <memory>

/// A lock between processes, named by an integer. It also keeps the threads of one process apart,
/// and a holder that is killed gives it back. Not recursive.
class SharedLock {
public:
    explicit SharedLock(const int& key);
    ~SharedLock();
    SharedLock(const SharedLock&) = delete;
    SharedLock& operator=(const SharedLock&) = delete;

    /// Waits for the lock; false when the system cannot provide it. Any thread.
    bool lock();
    /// Gives the lock back. Only after a lock() that returned true, in the same thread.
    void unlock();

private:
    class Private;
    const std::unique_ptr<Private> private_;
};
