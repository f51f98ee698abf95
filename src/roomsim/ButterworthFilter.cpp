#include "roomsim/ButterworthFilter.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace roomsim {

ButterworthFilter ButterworthFilter::highPass(double frequency, unsigned int rate) {
    return {frequency, rate, -1.0};
}

ButterworthFilter ButterworthFilter::lowPass(double frequency, unsigned int rate) {
    return {frequency, rate, 1.0};
}

/// Bilinear transform of the two pole pairs; `side` is 1 for the low pass, -1 for the high pass.
ButterworthFilter::ButterworthFilter(double frequency, unsigned int rate, double side)
    : sections_{} {
    const double turn = 2.0 * std::numbers::pi * std::min(frequency / rate, 0.49);
    const std::array angles{std::numbers::pi / 8.0, 3.0 * std::numbers::pi / 8.0};
    for (std::size_t i = 0; i < sections_.size(); ++i) {
        const double alpha = std::sin(turn) * std::cos(angles[i]);
        const double b0 = (1.0 - side * std::cos(turn)) / 2.0;
        const double a0 = 1.0 + alpha;
        sections_[i] = {b0 / a0, side * 2.0 * b0 / a0, b0 / a0, -2.0 * std::cos(turn) / a0,
                        (1.0 - alpha) / a0};
    }
}

void ButterworthFilter::process(std::vector<float>& samples) const {
    for (const Section& section : sections_) {
        double state1 = 0.0;
        double state2 = 0.0;
        for (float& sample : samples) {
            const auto in = static_cast<double>(sample);
            const double out = section.b0 * in + state1;
            state1 = section.b1 * in - section.a1 * out + state2;
            state2 = section.b2 * in - section.a2 * out;
            sample = static_cast<float>(out);
        }
    }
}

}  // namespace roomsim
