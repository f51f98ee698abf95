#pragma once

#include <cstddef>
#include <optional>

namespace dsp {

/// How a stream of some sample rate is corrected. Filters exist for 48 and 44.1 kHz only; at
/// multiples of these the low band is corrected at the base rate.
struct StreamRate {
    unsigned rate{48000};      ///< of the stream, Hz
    unsigned baseRate{48000};  ///< of the filters, Hz
    std::size_t ratio{1};      ///< rate / baseRate: 1, 2 or 4
    std::size_t group{0};      ///< which of the image's filters: 0 for 48 kHz, 1 for 44.1 kHz

    /// Frames by which everything is late at this rate, with and without a filter.
    [[nodiscard]] std::size_t latency() const;
};

/// Nothing for a rate other than 44.1, 48, 88.2, 96, 176.4 and 192 kHz.
std::optional<StreamRate> streamRate(unsigned rate);

}  // namespace dsp
