#pragma once

#include <limits>

namespace audioUtils {

/// Sample formats of interleaved PCM, little-endian.
enum class PcmFormat : int {
    S16 = 2,
    S24In3 = 4,
    S32 = 6,
};

}  // namespace audioUtils

namespace miscUtils {

/// "No time": the receiver plays what it gets as it comes.
inline constexpr unsigned long NoTimeValue = std::numeric_limits<unsigned long>::max();

}  // namespace miscUtils
