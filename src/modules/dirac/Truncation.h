#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

/// Toward zero; what no integer can hold becomes the nearest one, not-a-number 0.
inline std::int32_t truncated(double value) {
    if (std::isnan(value))
        return 0;
    using Limits = std::numeric_limits<std::int32_t>;
    return static_cast<std::int32_t>(
        std::clamp(value, double{Limits::min()}, double{Limits::max()}));
}
