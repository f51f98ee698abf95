#pragma once

#include <chrono>
#include <cstddef>

/// A window on an image in shared memory, without its lock: a glance at single values, for a
/// benchmark that waits for them. Must be gone before the device stops, or the device finds the
/// segment in use.
class SegmentView {
public:
    /// Attaches read-only to the segment with this System V key. Throws std::system_error.
    explicit SegmentView(int key);
    ~SegmentView();
    SegmentView(const SegmentView&) = delete;
    SegmentView& operator=(const SegmentView&) = delete;

    /// First tap of the last channel's second variant. It is behind all other filters, so the copy
    /// of an image reaches it late.
    float lastChannelTap() const;

    /// Waits until that tap has this value; false after `timeout`.
    bool awaitLastChannelTap(float tap, std::chrono::milliseconds timeout) const;

private:
    const std::byte* const address_;
};
