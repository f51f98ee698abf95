#include "roomsim/RoomState.h"

#include <gtest/gtest.h>

namespace roomsim {
namespace {

RoomState room(bool lockStep) {
    RoomState state{};
    state.lockStep = lockStep;
    state.pacing = {0, 1.0};
    state.clear(Role::kPlayback);
    state.clear(Role::kCapture);
    return state;
}

void run(RoomState& state, Role role, Flicks limit) {
    state.of(role).running = true;
    state.of(role).limit = limit;
}

TEST(RoomState, PacedTimeFollowsTheMachineAndNeverGoesBack) {
    RoomState state = room(false);
    state.advance(1'000'000'000);
    EXPECT_EQ(state.now, kFlicksPerSecond);
    state.advance(500'000'000);
    EXPECT_EQ(state.now, kFlicksPerSecond);
}

TEST(RoomState, InLockStepTimeStandsStillWhileNoStreamRuns) {
    RoomState state = room(true);
    state.advance(1'000'000'000);
    EXPECT_EQ(state.now, 0);
}

TEST(RoomState, InLockStepTheFirstStreamToRunDryHoldsTheTime) {
    RoomState state = room(true);
    run(state, Role::kCapture, 500);
    state.advance(0);
    EXPECT_EQ(state.now, 500);
    run(state, Role::kPlayback, 800);
    run(state, Role::kCapture, 900);
    state.advance(0);
    EXPECT_EQ(state.now, 800);
}

TEST(RoomState, AWaiterIsTakenOnceItsTimeHasCome) {
    RoomState state = room(true);
    state.of(Role::kCapture).wakeAt = 100;
    EXPECT_FALSE(state.takeWaiter(Role::kCapture));
    run(state, Role::kPlayback, 100);
    state.advance(0);
    EXPECT_TRUE(state.takeWaiter(Role::kCapture));
    EXPECT_FALSE(state.takeWaiter(Role::kCapture));
}

}  // namespace
}  // namespace roomsim
