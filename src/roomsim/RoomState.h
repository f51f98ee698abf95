#pragma once

#include "roomsim/Timeline.h"

#include <array>
#include <cstdint>
#include <limits>

namespace roomsim {

enum class Role : std::uint8_t { kPlayback = 0, kCapture = 1 };

constexpr Role peerOf(Role role) {
    return role == Role::kPlayback ? Role::kCapture : Role::kPlayback;
}

inline constexpr Flicks kNever = std::numeric_limits<Flicks>::max();

/// What one stream lets the other know.
struct StreamState {
    bool running;
    Flicks start;          ///< when it was last started: the time of its frame 0
    std::uint64_t starts;  ///< how often it was started
    Flicks limit;          ///< while running: when it will have run dry, or full
    Flicks wakeAt;         ///< when whoever waits for it wants to be woken, or kNever
};

/// The room's clock and its two streams. Plain data, which lies in shared memory and is guarded by
/// its mutex; the functions here are all that changes the time.
struct RoomState {
    bool lockStep;
    Pacing pacing;  ///< without lock step
    Flicks now;
    std::array<StreamState, 2> streams;

    [[nodiscard]] StreamState& of(Role role) { return streams[static_cast<std::size_t>(role)]; }
    [[nodiscard]] const StreamState& of(Role role) const {
        return streams[static_cast<std::size_t>(role)];
    }

    /// Sets the time: from `wall`, the machine's time in ns, or in lock step to when the first of
    /// the running streams would run dry. It never goes back.
    void advance(std::int64_t wall);

    /// Whether the waiter of the stream can go on; if so, nobody waits for it any more.
    bool takeWaiter(Role role);

    /// The stream is as if it had never run.
    void clear(Role role);
};

}  // namespace roomsim
