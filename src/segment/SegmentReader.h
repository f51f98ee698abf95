#pragma once

#include "sdk/dldsp/DiracConfiguration.h"
#include "segment/SegmentAttachment.h"

#include <memory>

class SharedLock;

namespace segment {

/// Copies the DSP's image out of the shared-memory segment with a System V key.
///
/// The segment is attached, read-only, only while the lock of the same key is held: whoever sets
/// the segment up counts its attachments under that lock, so a reader never looks like an owner.
/// Neither the segment nor, without a segment, its lock is ever created.
class SegmentReader {
public:
    explicit SegmentReader(int key);
    ~SegmentReader();
    SegmentReader(const SegmentReader&) = delete;
    SegmentReader& operator=(const SegmentReader&) = delete;

    int key() const { return key_; }

    /// The image as it stands. Throws SegmentAbsent, or SegmentError for a segment that cannot be
    /// attached, has another size, or does not begin with the magic number.
    std::unique_ptr<const DiracConfiguration> read();

private:
    const int key_;
    std::unique_ptr<SharedLock> lock_;  // made when a segment has been seen
};

}  // namespace segment
