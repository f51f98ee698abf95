#pragma once

#include "platform/cm/Tree.h"

#include <memory>

namespace platform {

/// Makes a tree the one that CMRoot() and all workers of this process reach, for as long as it
/// exists. There can be only one at a time: a second one throws std::logic_error.
class CurrentTree {
public:
    explicit CurrentTree(std::shared_ptr<Tree> tree);
    ~CurrentTree();
    CurrentTree(const CurrentTree&) = delete;
    CurrentTree& operator=(const CurrentTree&) = delete;
};

/// The tree of this process. Any thread. Ends the process when there is none: a worker cannot do
/// anything without a platform.
std::shared_ptr<Tree> currentTree();

}  // namespace platform
