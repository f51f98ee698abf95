#pragma once

#include "sdk/records/VeskHash.h"

/// What the player does.
struct VeskPlayLogicState {
    enum Enum { Stopped = 0, Transitioning = 1, Playing = 2, Paused = 3 };

    static const char* toString(Enum state);
};

/// Why the player is stopped.
struct VeskPlayLogicStopReason {
    enum Enum { UserRequested = 0 };
};

/// Who provides a source.
class VeskMetaData : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(QString, serviceID, ServiceID)
};

class VeskMediaData : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(VeskMetaData, metaData, MetaData)
};

/// A source as the player describes it while it plays.
class VeskMediaRoles : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(VeskMediaData, mediaData, MediaData)
};

/// The value at the player's data path.
class VeskPlayLogicData : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(VeskPlayLogicState::Enum, state, State)
    VESK_FIELD(VeskMediaRoles, mediaRoles, MediaRoles)
};

/// The service under which the module's own stimuli play.
QString VeskService_Dirac_Id();
