#pragma once

#include "platform/cm/Tree.h"
#include "platform/cm/WorkerMailbox.h"
#include "sdk/cm/CMNode.h"

#include <map>
#include <memory>

/// The nodes that one worker serves. Used in the worker's thread only; the nodes leave the tree
/// when it is destroyed.
class CMNodes {
public:
    CMNodes(CMNodesWorker* worker, const QString& workerName);
    ~CMNodes();
    CMNodes(const CMNodes&) = delete;
    CMNodes& operator=(const CMNodes&) = delete;

    /// Puts a node into the tree. Throws std::runtime_error when its path is taken.
    template <typename Node>
    Node* add(std::unique_ptr<Node> node, platform::NodeKind kind) {
        Node* const added = node.get();
        insert(std::move(node), kind);
        return added;
    }

    /// Lets the node at the request's path handle it.
    void handle(const CMSetDataRequest& request);

    platform::Tree& tree() { return *tree_; }

private:
    void insert(std::unique_ptr<CMNode> node, platform::NodeKind kind);

    const std::shared_ptr<platform::Tree> tree_;
    const std::shared_ptr<platform::WorkerMailbox> mailbox_;
    std::map<CMPath, std::unique_ptr<CMNode>> nodes_;
};
