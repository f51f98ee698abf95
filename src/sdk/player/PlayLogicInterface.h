#pragma once

#include "sdk/cm/CMPath.h"
#include "sdk/records/VeskPlayerRecords.h"

/// The platform's player. All operations may be called from any thread and return at once; what
/// they change is seen at the data path.
class PlayLogicInterface {
public:
    virtual ~PlayLogicInterface() = default;

    /// The one player of the process, owned by the platform.
    static PlayLogicInterface* playerInstance();

    /// Where the tree shows what the player does (VeskPlayLogicData); watchers see each transition.
    virtual CMPath dataPath() const = 0;

    /// Starts the source that `roles` describes in the place of what plays now. `enqueue`: after
    /// it.
    virtual void play(const VeskRoles& roles, bool enqueue) = 0;

    /// What the player does at this moment.
    virtual VeskPlayLogicData data() const = 0;

    virtual void stop(VeskPlayLogicStopReason::Enum reason) = 0;
};
