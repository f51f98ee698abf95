#include "roomsim/NoiseFloor.h"
#include "roomsim/Signals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>

namespace roomsim {
namespace {

Signal noise(double rms, std::uint64_t seed, std::int64_t frame, std::size_t count) {
    Signal signal(count);
    NoiseFloor(rms, seed).add(frame, signal.data(), count);
    return signal;
}

TEST(NoiseFloor, HasTheLevelAskedFor) {
    EXPECT_NEAR(rmsDb(noise(0.001, 1, 0, 200'000)), -60.0, 0.05);
}

TEST(NoiseFloor, IsGaussian) {
    Signal signal = noise(1.0, 2, 0, 200'000);
    const auto within = [&signal](float limit) {
        const auto count = std::ranges::count_if(
            signal, [limit](float sample) { return std::abs(sample) < limit; });
        return static_cast<double>(count) / static_cast<double>(signal.size());
    };
    EXPECT_NEAR(within(1.0F), 0.6827, 0.005);
    EXPECT_NEAR(within(2.0F), 0.9545, 0.003);
    EXPECT_NEAR(within(3.0F), 0.9973, 0.001);
}

TEST(NoiseFloor, IsWhite) {
    const Signal signal = noise(1.0, 3, 0, 200'000);
    for (const std::size_t lag : {1U, 2U, 3U, 7U, 100U}) {
        const double correlation =
            std::inner_product(signal.begin() + lag, signal.end(), signal.begin(), 0.0);
        EXPECT_NEAR(correlation / 200'000.0, 0.0, 0.01) << lag;
    }
}

TEST(NoiseFloor, DoesNotDependOnHowItIsCut) {
    const Signal whole = noise(0.1, 4, 1000, 500);
    Signal pieces = noise(0.1, 4, 1000, 123);
    const Signal rest = noise(0.1, 4, 1123, 377);
    pieces.insert(pieces.end(), rest.begin(), rest.end());
    EXPECT_EQ(pieces, whole);
}

TEST(NoiseFloor, DiffersFromSeedToSeed) {
    EXPECT_NE(noise(0.1, 5, 0, 100), noise(0.1, 6, 0, 100));
}

TEST(NoiseFloor, OffIsExactSilence) {
    EXPECT_EQ(noise(0.0, 7, 0, 100), Signal(100));
}

}  // namespace
}  // namespace roomsim
