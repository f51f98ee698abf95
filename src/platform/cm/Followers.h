#pragma once

#include "platform/cm/Tree.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace platform {

/// Numbers the changes of a tree in their order.
using ChangeNumber = std::uint64_t;

/// A callback that can be ended while another thread is about to call it.
class Follower {
public:
    /// Reports the changes after `since`.
    Follower(Tree::Callback callback, ChangeNumber since);

    bool wants(ChangeNumber change) const { return change > since_; }

    void call(const Change& change);
    /// Waits for a call that runs in another thread; afterwards call() does nothing.
    void end();

private:
    const Tree::Callback callback_;
    const ChangeNumber since_;
    std::recursive_mutex mutex_;  // recursive, so that a callback can end itself
    bool ended_{false};           // guarded by mutex_
};

using Audience = std::vector<std::shared_ptr<Follower>>;

/// Who follows what. Not synchronised: guarded by the tree's mutex.
class Followers {
public:
    /// No path: follows all.
    void add(const std::optional<CMPath>& path, std::shared_ptr<Follower> follower);
    void remove(const std::optional<CMPath>& path, const std::shared_ptr<Follower>& follower);

    Audience audience(const CMPath& path, ChangeNumber change) const;
    std::vector<CMPath> followedPaths() const;

private:
    std::map<CMPath, Audience> ofPath_;
    Audience ofAll_;
};

}  // namespace platform
