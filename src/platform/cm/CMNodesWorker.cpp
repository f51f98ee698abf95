#include "sdk/cm/CMNodesWorker.h"

#include "platform/cm/CMNodes.h"

CMWorker::CMWorker(QVariantHash config, QString name)
    : config_(std::move(config)), name_(std::move(name)) {
}

CMNodesWorker::CMNodesWorker(const QVariantHash& config, const QString& name)
    : CMWorker(config, name), nodes_(std::make_unique<CMNodes>(this, name)) {
}

/// Requests that still wait in the event queue are dropped with it, and thereby answered.
CMNodesWorker::~CMNodesWorker() = default;

void CMNodesWorker::setDataRequest(const CMSetDataRequest& request) {
    nodes_->handle(request);
}
