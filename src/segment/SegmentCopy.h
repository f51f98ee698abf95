#pragma once

#include "sdk/dldsp/DiracConfiguration.h"

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

// Neither function creates anything or takes the lock. Both throw SegmentAbsent, or SegmentError
// for a segment that cannot be examined or attached, or is not the DSP's image.

/// Checks that the segment exists and has the size of the DSP's. Nobody need hold the lock.
void checkSegment(int key);

/// Copies the image out of the segment. The caller holds the lock of the same key: the segment is
/// attached, read-only, only meanwhile, so that whoever counts the attachments under that lock
/// never takes the reader for an owner.
void copySegment(int key, DiracConfiguration* image);

}  // namespace segment
