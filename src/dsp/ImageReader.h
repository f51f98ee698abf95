#pragma once

#include "platform/services/SystemVLock.h"
#include "sdk/dldsp/DiracConfiguration.h"

#include <memory>
#include <string>

namespace dsp {

/// Copies the segment's image under its lock, which must have the segment's key, without waiting.
/// False when somebody holds the lock. Throws segment::SegmentError when there is no image.
bool readImage(int key, platform::SystemVLock* lock, DiracConfiguration* image);

/// The image that the DSP is to follow, as the segment has it. Takes time and allocates: not for
/// the audio thread. One thread at a time.
class ImageReader {
public:
    /// Looks at nothing yet: until a first poll() the image is one that is bypassed.
    explicit ImageReader(int key);

    /// Looks once, and never waits: while somebody holds the segment's lock, the last image stays.
    /// True when image() asks for something else than before; a new time stamp alone does not.
    bool poll();

    /// Bypassed when there is no segment or it is not the DSP's.
    [[nodiscard]] const DiracConfiguration& image() const { return *image_; }

    /// Why there is none, or empty.
    [[nodiscard]] const std::string& problem() const { return problem_; }

private:
    bool read();

    const int key_;
    platform::SystemVLock lock_;
    std::unique_ptr<DiracConfiguration> image_;
    std::unique_ptr<DiracConfiguration> seen_;
    std::string problem_;
};

}  // namespace dsp
