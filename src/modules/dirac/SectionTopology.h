#pragma once

#include "modules/dirac/DeviceInfo.h"

#include <cstdint>
#include <optional>
#include <vector>

/// Number of filter sections: 0 to 4 manage the bass, 5 corrects each speaker.
inline constexpr std::uint32_t kNumberOfSections = 6;
inline constexpr std::uint32_t kCorrectionSection = 5;

/// Size of a section's matrix of cells. The counts are 8-bit and wrap at 256.
struct SectionDimensions {
    std::uint8_t inputs{0};
    std::uint8_t outputs{0};
};

/// The dimensions of `section` on a device with these speakers; none when there is no such section.
std::optional<SectionDimensions> sectionDimensions(const std::vector<DeviceInfo::Speaker>& speakers,
                                                   std::uint8_t section);
