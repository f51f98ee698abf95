#pragma once

#include "platform/services/SystemVLock.h"
#include "sdk/dldsp/DiracConfiguration.h"
#include "segment/SegmentAttachment.h"

#include <memory>
#include <optional>
#include <string>

namespace dsp {

/// The image that the DSP is to follow, as the segment has it. Stays attached to the segment, which
/// it never creates or removes. Takes time and allocates: not for the audio thread. One thread at a
/// time.
class ImageReader {
public:
    /// Looks at nothing yet: until a first poll() the image is one that is bypassed.
    explicit ImageReader(int key);

    /// Looks once, and never waits: while somebody holds the segment's lock, the last image stays.
    /// True when image() asks for something else than before; a new time stamp alone does not.
    ///
    /// Two images of the same millisecond have the same stamp. So for some hundred calls after a
    /// change the whole image is compared, under the lock; later a look at the stamp is enough, and
    /// costs nobody anything.
    bool poll();

    /// Leaves the segment until the next poll().
    void detach() { attachment_.reset(); }

    /// Bypassed when there is no segment or it is not the DSP's.
    [[nodiscard]] const DiracConfiguration& image() const { return *image_; }

    /// Why there is none, or empty.
    [[nodiscard]] const std::string& problem() const { return problem_; }

private:
    using Stamp = segment::SegmentAttachment::Stamp;

    bool look();
    bool isQuiet(int id) const;
    bool copy(int id);
    void bypass(const std::string& reason);

    const int key_;
    platform::SystemVLock lock_;
    std::optional<segment::SegmentAttachment> attachment_;
    Stamp stamp_;            ///< of the last image
    unsigned unchanged_{0};  ///< calls since it changed
    std::unique_ptr<DiracConfiguration> image_;
    std::unique_ptr<DiracConfiguration> seen_;
    std::string problem_;
};

}  // namespace dsp
