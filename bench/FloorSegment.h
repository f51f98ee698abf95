#pragma once

#include "sdk/dldsp/DiracConfiguration.h"
#include "sdk/services/SharedLock.h"

#include <memory>

/// A segment and its lock like the module's, under another key: publication with nothing around it.
class FloorSegment {
public:
    static constexpr int kKey = 4321;

    /// Throws std::system_error when the system has no segment for it.
    FloorSegment();
    ~FloorSegment();
    FloorSegment(const FloorSegment&) = delete;
    FloorSegment& operator=(const FloorSegment&) = delete;

    /// Makes an image whose last channel begins with `tap` and copies it under the lock. Any
    /// thread.
    void publish(float tap);

private:
    SharedLock lock_{kKey};
    const int id_;
    DiracSegment* const segment_;
};
