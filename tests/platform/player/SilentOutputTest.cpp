#include "platform/player/SilentOutput.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <vector>

using namespace std::chrono_literals;
using platform::SilentOutput;

namespace {

using Clock = std::chrono::steady_clock;

}  // namespace

TEST(SilentOutputTest, TakesAudioAtTheSpeedOfALoudspeaker) {
    const platform::WakeEvent interrupt;
    SilentOutput output({48000, 2}, interrupt);
    const auto begin = Clock::now();
    for (int i = 0; i < 100; ++i)
        ASSERT_TRUE(output.write(std::vector<std::int32_t>(2 * 240)));
    EXPECT_GE(Clock::now() - begin, 399ms);  // 0.5 s, of which 0.1 s lie in the output
    EXPECT_TRUE(output.drain());
    EXPECT_GE(Clock::now() - begin, 499ms);
    EXPECT_LT(Clock::now() - begin, 5s);
}

TEST(SilentOutputTest, AWaitIsInterrupted) {
    platform::WakeEvent interrupt;
    SilentOutput output({48000, 1}, interrupt);
    auto writing = std::async(std::launch::async, [&output] {
        return output.write(std::vector<std::int32_t>(48'000 * 3600));
    });
    interrupt.signal();
    EXPECT_FALSE(writing.get());
    EXPECT_FALSE(output.drain());
}
