#include "roomsim/NoiseFloor.h"

#include <cmath>
#include <numbers>

namespace roomsim {
namespace {

/// The output function of the SplitMix64 generator: a hash that passes for random.
std::uint64_t mix(std::uint64_t value) {
    value = (value ^ (value >> 30U)) * 0xbf58476d1ce4e5b9ULL;
    value = (value ^ (value >> 27U)) * 0x94d049bb133111ebULL;
    return value ^ (value >> 31U);
}

}  // namespace

void NoiseFloor::add(std::int64_t frame, float* samples, std::size_t count) const {
    if (rms_ == 0.0)
        return;
    for (std::size_t i = 0; i < count; ++i)
        samples[i] += static_cast<float>(rms_ * valueAt(static_cast<std::uint64_t>(frame) + i));
}

double NoiseFloor::valueAt(std::uint64_t frame) const {
    constexpr double kUnit = 1.0 / 4294967296.0;
    const std::uint64_t random = mix(mix(seed_) + (frame + 1) * 0x9e3779b97f4a7c15ULL);
    const double radius = (static_cast<double>(random >> 32U) + 1.0) * kUnit;  // in (0, 1]
    const double angle = static_cast<double>(random & 0xffffffffU) * kUnit;
    return std::sqrt(-2.0 * std::log(radius)) * std::cos(2.0 * std::numbers::pi * angle);
}

}  // namespace roomsim
