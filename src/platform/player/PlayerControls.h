#pragma once

#include "sdk/player/PlayLogicInterface.h"
#include "sdk/records/VeskHash.h"

#include <QString>

#include <memory>

namespace platform {

template <typename Worker>
class ServiceThread;

/// The arguments of playerPlayFilePath().
class PlayFileRequest : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(QString, path, Path)  // of a sound file, absolute
};

/// What the tree offers beside the player's data: the player's actions, and the sub-mix of the
/// streamer that it plays through. Two workers, each with a thread of its own.
///
/// playerPlayFilePath() answers when the file plays next, or with the error "CannotPlay".
class PlayerControls {
public:
    /// The workers' nodes are in the tree when this returns. Tree and player outlive the object.
    explicit PlayerControls(PlayLogicInterface& player);
    ~PlayerControls();
    PlayerControls(const PlayerControls&) = delete;
    PlayerControls& operator=(const PlayerControls&) = delete;

private:
    class Actions;
    class SubMix;
    const std::unique_ptr<ServiceThread<Actions>> actions_;
    const std::unique_ptr<ServiceThread<SubMix>> subMix_;
};

}  // namespace platform
