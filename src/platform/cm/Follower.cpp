#include "platform/cm/Follower.h"

namespace platform {

Follower::Follower(Tree::Callback callback, ChangeNumber since)
    : callback_(std::move(callback)), since_(since), all_(true) {
}

Follower::Follower(Tree::Callback callback, ChangeNumber since, CMPath path)
    : callback_(std::move(callback)), since_(since), all_(false), path_(std::move(path)) {
}

bool Follower::wants(const CMPath& path, ChangeNumber change) const {
    return change > since_ && (all_ || path == path_);
}

void Follower::call(const Change& change) {
    const std::lock_guard lock(mutex_);
    if (!ended_)
        callback_(change);
}

void Follower::end() {
    const std::lock_guard lock(mutex_);
    ended_ = true;
}

}  // namespace platform
