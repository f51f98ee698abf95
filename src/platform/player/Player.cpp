#include "platform/player/Player.h"

#include "platform/PlatformPaths.h"
#include "platform/cm/Tree.h"

#include <QtGlobal>

#include <atomic>
#include <utility>

namespace {

/// playerInstance() takes no argument, so that the player of the process has to stand somewhere.
std::atomic<PlayLogicInterface*>& instance() {
    static std::atomic<PlayLogicInterface*> player{nullptr};
    return player;
}

}  // namespace

PlayLogicInterface* PlayLogicInterface::playerInstance() {
    PlayLogicInterface* const player = instance();
    if (!player)
        qFatal("The player is used while no platform exists");
    return player;
}

namespace platform {

Player::Player(std::shared_ptr<Tree> tree) : tree_(std::move(tree)) {
    if (instance().exchange(this))
        qFatal("The process already has a player");
}

Player::~Player() {
    instance() = nullptr;
}

CMPath Player::dataPath() const {
    return playerDataPath();
}

void Player::play(const VeskRoles& roles, bool /*enqueue*/) {
    VeskPlayLogicData playing;
    playing.setState(VeskPlayLogicState::Transitioning);
    playing.setMediaRoles(roles);
    tree_->write(dataPath(), VeskValue(playing.hash()), {});
}

VeskPlayLogicData Player::data() const {
    return VeskPlayLogicData(tree_->read(dataPath()).value_or(VeskValue()).hash());
}

void Player::stop(VeskPlayLogicStopReason::Enum /*reason*/) {
    VeskPlayLogicData stopped;
    stopped.setState(VeskPlayLogicState::Stopped);
    tree_->write(dataPath(), VeskValue(stopped.hash()), {});
}

}  // namespace platform
