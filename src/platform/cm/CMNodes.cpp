#include "platform/cm/CMNodes.h"

#include "platform/cm/CurrentTree.h"

CMNodes::CMNodes(CMNodesWorker* worker, const QString& workerName)
    : tree_(platform::currentTree()),
      mailbox_(std::make_shared<platform::WorkerMailbox>(worker, workerName)) {
}

CMNodes::~CMNodes() {
    for (const auto& [path, node] : nodes_)
        tree_->removeNode(path);
    mailbox_->close();
}

void CMNodes::insert(std::unique_ptr<CMNode> node, platform::NodeKind kind) {
    const CMPath path = node->path();
    tree_->addNode(path, kind, mailbox_);
    nodes_.emplace(path, std::move(node));
}

void CMNodes::handle(const CMSetDataRequest& request) {
    nodes_.at(request.path())->handle(request);
}
