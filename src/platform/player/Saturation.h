#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

namespace platform {

/// The nearest 32-bit integer; what lies beyond full scale becomes full scale, a NaN silence.
inline std::int32_t saturated(double sample) {
    using Limits = std::numeric_limits<std::int32_t>;
    if (!(sample > Limits::min()))
        return std::isnan(sample) ? 0 : Limits::min();
    return sample >= Limits::max() ? Limits::max() : static_cast<std::int32_t>(std::lrint(sample));
}

}  // namespace platform
