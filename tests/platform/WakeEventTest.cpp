#include "platform/WakeEvent.h"

#include <gtest/gtest.h>

#include <pthread.h>

#include <array>
#include <atomic>
#include <csignal>
#include <thread>

using namespace std::chrono_literals;
using platform::waitForInput;
using platform::WakeEvent;

namespace {

using Clock = std::chrono::steady_clock;

/// How long it waits.
Clock::duration waitFor(std::span<const int> descriptors, std::chrono::milliseconds timeout) {
    const auto begin = Clock::now();
    waitForInput(descriptors, timeout);
    return Clock::now() - begin;
}

}  // namespace

TEST(WakeEventTest, IsSignalledUntilItIsCleared) {
    WakeEvent event;
    EXPECT_FALSE(event.isSignalled());
    event.signal();
    event.signal();
    EXPECT_TRUE(event.isSignalled());
    EXPECT_TRUE(event.isSignalled());
    event.clear();
    EXPECT_FALSE(event.isSignalled());
    event.clear();
    EXPECT_FALSE(event.isSignalled());
}

TEST(WakeEventTest, AWaitEndsWithAnyOfItsDescriptors) {
    const WakeEvent quiet;
    WakeEvent event;
    const std::array descriptors{-1, quiet.descriptor(), event.descriptor()};
    std::jthread signalling([&] { event.signal(); });
    EXPECT_LT(waitFor(descriptors, 20s), 10s);
}

TEST(WakeEventTest, AWaitForNothingTakesItsTime) {
    const WakeEvent quiet;
    const std::array descriptors{-1, quiet.descriptor()};
    EXPECT_GE(waitFor(descriptors, 30ms), 30ms);
    EXPECT_LT(waitFor(descriptors, 0ms), 10s);
}

TEST(WakeEventTest, ASignalOfTheSystemDoesNotEndAWait) {
    struct sigaction before {};
    struct sigaction ignoring {};
    ignoring.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &ignoring, &before), 0);
    std::atomic<bool> isOver{false};
    Clock::duration waited{};
    std::thread waiting([&] {
        const int none = -1;
        waited = waitFor({&none, 1}, 100ms);
        isOver = true;
    });
    while (!isOver) {
        pthread_kill(waiting.native_handle(), SIGUSR1);
        std::this_thread::sleep_for(1ms);
    }
    waiting.join();
    sigaction(SIGUSR1, &before, nullptr);
    EXPECT_GE(waited, 100ms);
}
