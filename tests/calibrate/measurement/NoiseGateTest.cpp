#include "calibrate/measurement/NoiseGate.h"
#include "calibrate/measurement/Signals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

using namespace calibrate::measurement;

namespace {

constexpr double kBefore = 0.1;  // s
constexpr std::size_t kOnset = 4'800;

/// A second with a small room in it.
ImpulseResponse response() {
    auto samples = smallRoom(24'000, kOnset, 1, 1);
    samples.resize(48'000);
    return {48'000, samples, -kBefore};
}

double energy(const std::vector<double>& samples, std::size_t from, std::size_t to) {
    const auto begin = samples.begin();
    return std::inner_product(begin + static_cast<std::ptrdiff_t>(from),
                              begin + static_cast<std::ptrdiff_t>(to),
                              begin + static_cast<std::ptrdiff_t>(from), 0.0);
}

}  // namespace

TEST(NoiseGate, leavesAResponseWithoutNoiseAsItIs) {
    const auto truth = response();
    const auto kept = withoutNoise(truth, whiteNoise(6'000, 1e-9, 2), kBefore);
    EXPECT_EQ(kept.start, truth.start);
    EXPECT_LT(errorBetween(truth, kept, 20, 20'000), -80);
}

TEST(NoiseGate, takesTheNoiseOutBehindTheRoomAndAhead) {
    const auto truth = response();
    auto noisy = truth;
    const auto noise = whiteNoise(48'000, 1e-3, 3);
    std::ranges::transform(noisy.samples, noise, noisy.samples.begin(), std::plus<>());
    const auto kept = withoutNoise(noisy, whiteNoise(6'000, 1e-3, 4), kBefore);
    EXPECT_LT(energy(kept.samples, 36'000, 48'000), 0.02 * energy(noise, 36'000, 48'000));
    EXPECT_LT(energy(kept.samples, 0, 2'400), 0.02 * energy(noise, 0, 2'400));
    EXPECT_LT(errorBetween(truth, kept, 20, 20'000), errorBetween(truth, noisy, 20, 20'000) - 5);
}

TEST(NoiseGate, anOctaveThatNeverComesOutOfTheNoiseIsSilent) {
    const ImpulseResponse noise{48'000, whiteNoise(48'000, 1e-3, 5), -kBefore};
    const auto kept = withoutNoise(noise, whiteNoise(6'000, 1e-2, 6), kBefore);
    EXPECT_EQ(energy(kept.samples, 0, kept.samples.size()), 0);
}
