#include "platform/cm/Followers.h"

#include <algorithm>
#include <iterator>

namespace platform {

Follower::Follower(Tree::Callback callback, ChangeNumber since)
    : callback_(std::move(callback)), since_(since) {
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

void Followers::add(const std::optional<CMPath>& path, std::shared_ptr<Follower> follower) {
    (path ? ofPath_[*path] : ofAll_).push_back(std::move(follower));
}

void Followers::remove(const std::optional<CMPath>& path,
                       const std::shared_ptr<Follower>& follower) {
    std::erase(path ? ofPath_[*path] : ofAll_, follower);
    if (path && ofPath_[*path].empty())
        ofPath_.erase(*path);
}

Audience Followers::audience(const CMPath& path, ChangeNumber change) const {
    Audience audience;
    const auto add = [&](const Audience& followers) {
        std::copy_if(followers.begin(), followers.end(), std::back_inserter(audience),
                     [change](const auto& follower) { return follower->wants(change); });
    };
    if (const auto entry = ofPath_.find(path); entry != ofPath_.end())
        add(entry->second);
    add(ofAll_);
    return audience;
}

std::vector<CMPath> Followers::followedPaths() const {
    std::vector<CMPath> paths;
    std::transform(ofPath_.begin(), ofPath_.end(), std::back_inserter(paths),
                   [](const auto& entry) { return entry.first; });
    return paths;
}

}  // namespace platform
