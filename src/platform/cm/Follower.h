#pragma once

#include "platform/cm/Tree.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace platform {

/// Numbers the changes of a tree in their order.
using ChangeNumber = std::uint64_t;

/// A callback that can be ended while another thread is about to call it.
class Follower {
public:
    /// Reports the changes of all paths after `since`.
    Follower(Tree::Callback callback, ChangeNumber since);
    /// Reports those of one path.
    Follower(Tree::Callback callback, ChangeNumber since, CMPath path);

    bool followsAll() const { return all_; }
    const CMPath& path() const { return path_; }
    bool wants(const CMPath& path, ChangeNumber change) const;

    void call(const Change& change);
    /// Waits for a call that runs in another thread; afterwards call() does nothing.
    void end();

private:
    const Tree::Callback callback_;
    const ChangeNumber since_;
    const bool all_;
    const CMPath path_;           // when not all
    std::recursive_mutex mutex_;  // recursive, so that a callback can end itself
    bool ended_{false};           // guarded by mutex_
};

using Followers = std::vector<std::shared_ptr<Follower>>;

}  // namespace platform
