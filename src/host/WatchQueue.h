#pragma once

#include "platform/cm/Tree.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <list>
#include <mutex>
#include <optional>

namespace host {

/// Changes on their way from the tree to one watcher, in order. A change that is still waiting is
/// replaced by a newer one of the same node, unless each transition of the node counts. Any thread.
class WatchQueue {
public:
    /// How many changes may wait; only nodes whose every transition counts can reach it.
    static constexpr std::size_t kCapacity = 4096;

    /// Never waits. The watcher has fallen behind for good when there is no room.
    void push(const platform::Change& change);

    /// The oldest change; none when there has been none for `patience`.
    std::optional<platform::Change> pop(std::chrono::milliseconds patience);

    /// Whether a change was lost.
    bool hasOverflowed() const;

private:
    mutable std::mutex mutex_;
    std::condition_variable arrived_;
    std::list<platform::Change> changes_;  // guarded by mutex_
    bool overflowed_{false};               // guarded by mutex_
};

}  // namespace host
