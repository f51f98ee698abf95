#pragma once

#include "segment/SegmentReader.h"

#include <memory>
#include <optional>
#include <string>

namespace segment {

/// What became of the segment since the last look at it.
struct SegmentChange {
    enum class Kind { Image, Absent, Unreadable };

    Kind kind{Kind::Absent};
    std::shared_ptr<const DiracConfiguration> image;  ///< Kind::Image only
    std::string error;                                ///< the other kinds: why there is no image
};

/// Looks at a segment again and again and tells when there is news: a new image, or the segment's
/// removal and return.
class SegmentWatch {
public:
    explicit SegmentWatch(int key);

    /// The news since the previous call, none if everything is as it was. The first call always
    /// has some.
    std::optional<SegmentChange> poll();

private:
    SegmentChange look();
    bool isNews(const SegmentChange& now) const;

    SegmentReader reader_;
    std::optional<SegmentChange> last_;
};

}  // namespace segment
