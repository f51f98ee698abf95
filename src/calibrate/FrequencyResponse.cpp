#include "calibrate/FrequencyResponse.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace calibrate {

std::complex<double> responseAt(std::span<const double> taps, double cycles) {
    const auto delay = std::polar(1.0, -2 * std::numbers::pi * cycles);
    std::complex<double> sum = 0;
    for (std::size_t i = taps.size(); i-- > 0;)
        sum = sum * delay + taps[i];
    return sum;
}

Peak peakOf(std::span<const double> taps) {
    const std::size_t steps = std::clamp<std::size_t>(2 * taps.size(), 256, 4096);
    double highest = 0;
    double where = 0;
    for (std::size_t i = 0; i <= steps; ++i) {
        const double cycles = 0.5 * static_cast<double>(i) / static_cast<double>(steps);
        const double magnitude = std::abs(responseAt(taps, cycles));
        if (magnitude > highest) {
            highest = magnitude;
            where = cycles;
        }
    }
    return {20 * std::log10(highest), where};
}

}  // namespace calibrate
