#include "platform/cm/CurrentTree.h"

#include <QtGlobal>

#include <mutex>
#include <stdexcept>

namespace platform {

namespace {

/// CMRoot() takes no argument, so that the tree of the process has to stand somewhere.
struct Holder {
    std::mutex mutex;
    std::shared_ptr<Tree> tree;  // guarded by mutex
};

Holder& holder() {
    static Holder instance;
    return instance;
}

}  // namespace

CurrentTree::CurrentTree(std::shared_ptr<Tree> tree) {
    const std::lock_guard lock(holder().mutex);
    if (holder().tree)
        throw std::logic_error("The process already has a configuration tree");
    holder().tree = std::move(tree);
}

CurrentTree::~CurrentTree() {
    std::shared_ptr<Tree> last;  // released without the lock
    const std::lock_guard lock(holder().mutex);
    last.swap(holder().tree);
}

std::shared_ptr<Tree> currentTree() {
    const std::lock_guard lock(holder().mutex);
    if (!holder().tree)
        qFatal("The configuration tree is used while no platform exists");
    return holder().tree;
}

}  // namespace platform
