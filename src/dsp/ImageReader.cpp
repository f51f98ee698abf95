#include "dsp/ImageReader.h"

#include "segment/SegmentCopy.h"

#include <algorithm>
#include <mutex>
#include <span>
#include <utility>

namespace dsp {
namespace {

bool sameContent(const DiracConfiguration& a, const DiracConfiguration& b) {
    constexpr std::size_t content = sizeof a.timeStamp;
    return std::ranges::equal(std::as_bytes(std::span(&a, 1)).subspan(content),
                              std::as_bytes(std::span(&b, 1)).subspan(content));
}

}  // namespace

/// The lock is not asked for without a segment: asking would create it.
bool readImage(int key, platform::SystemVLock* lock, DiracConfiguration* image) {
    segment::checkSegment(key);
    if (!lock->tryLock())
        return false;
    const std::unique_lock<platform::SystemVLock> guard(*lock, std::adopt_lock);
    segment::copySegment(key, image);
    return true;
}

ImageReader::ImageReader(int key)
    : key_(key),
      lock_(key),
      image_(std::make_unique<DiracConfiguration>()),
      seen_(std::make_unique<DiracConfiguration>()) {
}

bool ImageReader::poll() {
    if (!read())
        return false;
    std::swap(image_, seen_);
    return !sameContent(*image_, *seen_);
}

/// False when the lock is held.
bool ImageReader::read() {
    try {
        if (!readImage(key_, &lock_, seen_.get()))
            return false;
        problem_.clear();
    } catch (const segment::SegmentError& error) {
        *seen_ = DiracConfiguration{};
        problem_ = error.what();
    }
    return true;
}

}  // namespace dsp
