#include "dsp/ImageReader.h"

#include <algorithm>
#include <mutex>
#include <span>
#include <utility>

namespace dsp {
namespace {

constexpr unsigned kCallsUntilQuiet = 500;

bool sameContent(const DiracConfiguration& a, const DiracConfiguration& b) {
    constexpr std::size_t content = sizeof a.timeStamp;
    return std::ranges::equal(std::as_bytes(std::span(&a, 1)).subspan(content),
                              std::as_bytes(std::span(&b, 1)).subspan(content));
}

}  // namespace

ImageReader::ImageReader(int key)
    : key_(key),
      lock_(key),
      image_(std::make_unique<DiracConfiguration>()),
      seen_(std::make_unique<DiracConfiguration>()) {
}

bool ImageReader::poll() {
    if (!look())
        return false;
    std::swap(image_, seen_);
    return !sameContent(*image_, *seen_);
}

/// False when there is nothing to compare.
bool ImageReader::look() {
    try {
        const int id = segment::findSegment(key_);
        return !isQuiet(id) && copy(id);
    } catch (const segment::SegmentError& error) {
        bypass(error.what());
        return true;
    }
}

bool ImageReader::isQuiet(int id) const {
    return attachment_ && attachment_->id() == id && unchanged_ > kCallsUntilQuiet &&
           attachment_->peek() == stamp_;
}

/// False when the lock is held. It is asked for only where there is a segment, because asking
/// creates it.
bool ImageReader::copy(int id) {
    if (!lock_.tryLock())
        return false;
    const std::unique_lock<platform::SystemVLock> guard(lock_, std::adopt_lock);
    if (!attachment_ || attachment_->id() != id)
        attachment_.emplace(key_);
    const Stamp stamp = attachment_->peek();
    unchanged_ = stamp == stamp_ ? unchanged_ + 1 : 0;
    stamp_ = stamp;
    attachment_->copy(seen_.get());
    problem_.clear();
    return true;
}

void ImageReader::bypass(const std::string& reason) {
    attachment_.reset();
    *seen_ = DiracConfiguration{};
    problem_ = reason;
}

}  // namespace dsp
