#pragma once

#include "sdk/cm/CMAbstractWorker.h"

#include <QVariantHash>

#include <memory>

/// A worker that the platform's process runs in a thread of its own.
class CMWorker : public CMAbstractWorker {
    Q_OBJECT

public:
    CMWorker(QVariantHash config, QString name);

    const QString& name() const { return name_; }
    /// The configuration that the process loaded the worker with.
    const QVariantHash& config() const { return config_; }

private:
    const QVariantHash config_;
    const QString name_;
};

/// The set of nodes that a worker serves; opaque to modules.
class CMNodes;

/// A worker that serves nodes. The nodes are created with the static `create` operations of the
/// node classes, belong to the worker and leave the tree with it.
class CMNodesWorker : public CMWorker {
    Q_OBJECT

public:
    CMNodesWorker(const QVariantHash& config, const QString& name);
    ~CMNodesWorker() override;

    CMNodes* nodes() { return nodes_.get(); }

protected:
    void setDataRequest(const CMSetDataRequest& request) override;

private:
    std::unique_ptr<CMNodes> nodes_;
};
