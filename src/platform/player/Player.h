#pragma once

#include "sdk/player/PlayLogicInterface.h"

#include <memory>

namespace platform {

class Tree;

/// The platform's player: what PlayLogicInterface::playerInstance() gives while the object exists.
/// There is at most one at a time; a second one ends the process.
class Player : public PlayLogicInterface {
public:
    /// The player shows what it does at playerDataPath(), which `tree` must provide.
    explicit Player(std::shared_ptr<Tree> tree);
    ~Player() override;
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    CMPath dataPath() const override;

    void play(const VeskRoles& roles, bool enqueue) override;
    VeskPlayLogicData data() const override;

    /// From then on no source is shown.
    void stop(VeskPlayLogicStopReason::Enum reason) override;

private:
    const std::shared_ptr<Tree> tree_;
};

}  // namespace platform
