#include "segment/SegmentWatch.h"

#include <algorithm>
#include <span>

namespace segment {

namespace {

/// Two images may carry the same time stamp when they were published within a millisecond.
bool sameImage(const DiracConfiguration& a, const DiracConfiguration& b) {
    return std::ranges::equal(std::as_bytes(std::span(&a, 1)), std::as_bytes(std::span(&b, 1)));
}

}  // namespace

SegmentWatch::SegmentWatch(int key) : reader_(key) {
}

std::optional<SegmentChange> SegmentWatch::poll() {
    SegmentChange now = look();
    if (!isNews(now))
        return std::nullopt;
    last_ = now;
    return now;
}

SegmentChange SegmentWatch::look() {
    try {
        return {SegmentChange::Kind::Image, reader_.read(), {}};
    } catch (const SegmentAbsent& error) {
        return {SegmentChange::Kind::Absent, nullptr, error.what()};
    } catch (const SegmentError& error) {
        return {SegmentChange::Kind::Unreadable, nullptr, error.what()};
    }
}

bool SegmentWatch::isNews(const SegmentChange& now) const {
    if (!last_ || last_->kind != now.kind)
        return true;
    return now.image ? !sameImage(*last_->image, *now.image) : last_->error != now.error;
}

}  // namespace segment
