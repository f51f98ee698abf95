#include "roomsim/RoomState.h"

#include <algorithm>

namespace roomsim {

void RoomState::advance(std::int64_t wall) {
    if (!lockStep) {
        now = std::max(now, pacing.timeAt(wall));
        return;
    }
    Flicks limit = kNever;
    for (const StreamState& stream : streams) {
        if (stream.running)
            limit = std::min(limit, stream.limit);
    }
    if (limit != kNever)
        now = std::max(now, limit);
}

bool RoomState::takeWaiter(Role role) {
    StreamState& stream = of(role);
    if (stream.wakeAt > now)
        return false;
    stream.wakeAt = kNever;
    return true;
}

void RoomState::clear(Role role) {
    of(role) = {false, 0, 0, kNever, kNever};
}

}  // namespace roomsim
