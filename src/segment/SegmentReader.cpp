#include "segment/SegmentReader.h"

#include "sdk/services/SharedLock.h"

#include <mutex>
#include <string>

namespace segment {

SegmentReader::SegmentReader(int key) : key_(key) {
}

SegmentReader::~SegmentReader() = default;

std::unique_ptr<const DiracConfiguration> SegmentReader::read() {
    findSegment(key_);
    if (!lock_)
        lock_ = std::make_unique<SharedLock>(key_);
    if (!lock_->lock())
        throw SegmentError("cannot take the lock with key " + std::to_string(key_));
    const std::unique_lock<SharedLock> guard(*lock_, std::adopt_lock);
    auto image = std::make_unique<DiracConfiguration>();
    SegmentAttachment(key_).copy(image.get());
    return image;
}

}  // namespace segment
