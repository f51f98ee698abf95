#pragma once

#include "sdk/dldsp/DiracConfiguration.h"

#include <cstddef>

/// A System V key that no segment and no semaphore has.
int unusedKey();

/// A shared-memory segment of the test's own; it and the lock of the same key are removed at the
/// end.
class TestSegment {
public:
    explicit TestSegment(int key, std::size_t size = sizeof(DiracSegment));
    ~TestSegment();
    TestSegment(const TestSegment&) = delete;
    TestSegment& operator=(const TestSegment&) = delete;

    int key() const { return key_; }
    int id() const { return id_; }

    void write(const DiracSegment& content);
    void publish(const DiracConfiguration& image);

    /// How many processes wait for the lock to become free.
    int lockWaiters() const;
    bool hasLock() const;

    /// How many attachments the segment has besides the test's.
    std::size_t otherAttachments() const;

private:
    const int key_;
    const int id_;
    void* const address_;
};
