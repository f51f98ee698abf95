#include "host/WatchQueue.h"

#include <gtest/gtest.h>

#include <future>

namespace host {
namespace {

using namespace std::chrono_literals;

platform::Change change(const char* path, int value, bool everyTransition = false) {
    return {CMPath(path), platform::NodeKind::Value, VeskValue::ofI32(value), {}, everyTransition};
}

void expectNext(WatchQueue& queue, const char* path, int value) {
    const auto next = queue.pop(0ms);
    ASSERT_TRUE(next);
    EXPECT_EQ(next->path, CMPath(path));
    EXPECT_EQ(next->value.i32_(), value);
}

TEST(WatchQueue, KeepsTheOrderOfTheNodes) {
    WatchQueue queue;
    queue.push(change("a", 1));
    queue.push(change("b", 2));
    expectNext(queue, "a", 1);
    expectNext(queue, "b", 2);
    EXPECT_FALSE(queue.pop(0ms));
}

TEST(WatchQueue, ANewerChangeReplacesTheOneThatWaits) {
    WatchQueue queue;
    queue.push(change("a", 1));
    queue.push(change("b", 2));
    queue.push(change("a", 3));
    expectNext(queue, "b", 2);
    expectNext(queue, "a", 3);
    EXPECT_FALSE(queue.pop(0ms));
}

TEST(WatchQueue, KeepsEachTransitionWhereItCounts) {
    WatchQueue queue;
    queue.push(change("player", 1, true));
    queue.push(change("player", 2, true));
    expectNext(queue, "player", 1);
    expectNext(queue, "player", 2);
}

TEST(WatchQueue, IsBounded) {
    WatchQueue queue;
    for (std::size_t i = 0; i < WatchQueue::kCapacity; ++i)
        queue.push(change("player", static_cast<int>(i), true));
    EXPECT_FALSE(queue.hasOverflowed());
    queue.push(change("player", -1, true));
    EXPECT_TRUE(queue.hasOverflowed());
    expectNext(queue, "player", 0);
}

TEST(WatchQueue, WakesWhoWaits) {
    WatchQueue queue;
    auto waiting = std::async(std::launch::async, [&] { return queue.pop(20s); });
    queue.push(change("a", 7));
    EXPECT_EQ(waiting.get()->value.i32_(), 7);
}

}  // namespace
}  // namespace host
