#pragma once

#include "sdk/records/VeskRoles.h"

/// What the player does.
struct VeskPlayLogicState {
    enum Enum { Stopped = 0, Transitioning = 1, Playing = 2, Paused = 3 };

    static const char* toString(Enum state);
};

/// Why the player is stopped.
struct VeskPlayLogicStopReason {
    enum Enum { UserRequested = 0 };
};

/// The value at the player's data path.
class VeskPlayLogicData : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(VeskPlayLogicState::Enum, state, State)
    VESK_FIELD(VeskRoles, mediaRoles, MediaRoles)  // empty: no source
};
