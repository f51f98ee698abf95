#pragma once

#include "sdk/dldsp/DiracConfiguration.h"

#include <cstdint>
#include <stdexcept>

namespace segment {

/// Why the segment cannot be read; the text names its key and what is wrong.
class SegmentError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// No segment has the key.
class SegmentAbsent : public SegmentError {
    using SegmentError::SegmentError;
};

/// The system's number of the segment, another one when it has been made anew. Throws
/// SegmentAbsent, or SegmentError for a segment that may not be examined or that has not the size
/// of the DSP's. Creates nothing; nobody need hold the lock.
int findSegment(int key);

/// The DSP's segment, attached read-only as long as the object exists. Whoever sets the segment up
/// counts its attachments under the lock of the same key, and so does, without the lock, who
/// considers to remove it: who only looks is attached only while holding the lock.
class SegmentAttachment {
public:
    /// What changes with each image, or nearly so.
    struct Stamp {
        std::uint32_t magic{0};
        std::int64_t time{0};

        friend bool operator==(const Stamp&, const Stamp&) = default;
    };

    /// Throws as findSegment() does. The caller holds the lock.
    explicit SegmentAttachment(int key);
    ~SegmentAttachment();
    SegmentAttachment(const SegmentAttachment&) = delete;
    SegmentAttachment& operator=(const SegmentAttachment&) = delete;

    [[nodiscard]] int id() const { return id_; }

    /// A look without the lock: while somebody writes the image, it may be anything.
    [[nodiscard]] Stamp peek() const;

    /// The caller holds the lock. Throws SegmentError for a segment that does not begin with the
    /// magic number.
    void copy(DiracConfiguration* image) const;

private:
    const int key_;
    const int id_;
    const DiracSegment* const segment_;
};

}  // namespace segment
