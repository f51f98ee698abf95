#pragma once

#include "sdk/cm/CMPath.h"
#include "sdk/cm/CMReply.h"
#include "sdk/cm/CMSetDataRequest.h"
#include "sdk/records/VeskValue.h"

#include <QObject>
#include <QVariant>

/// Anything that serves or uses nodes of the configuration tree.
///
/// The three client calls may come from any thread and never wait for another thread's event
/// loop: a value that no worker serves is changed when setValue() returns, a worker's own node is
/// changed later, in its worker's thread. A write of an equal value changes nothing.
class CMAbstractWorker : public QObject {
    Q_OBJECT

public:
    explicit CMAbstractWorker(QObject* parent = nullptr);
    ~CMAbstractWorker() override;

    /// The node's current value as a hash that converts to a VeskValue; an invalid QVariant when
    /// the path has no value.
    QVariant getValue(const CMPath& path) const;

    /// Asks for a new value. The reply is answered with true, or with the error of an unknown
    /// path or of the node's validator.
    void setValue(const CMPath& path, const VeskValue& value, const CMReply<QVariant>& reply);

    /// Runs the action at `path` with a record as its arguments, in its worker's thread.
    void invoke(const CMPath& path, const QVariant& arguments, const CMReply<QVariant>& reply);

protected:
    /// A write to, or an activation of, a node that this worker serves. Called in its thread.
    virtual void setDataRequest(const CMSetDataRequest& request);

    bool event(QEvent* event) override;
};

/// The worker through which everybody reaches the whole tree. Any thread.
CMAbstractWorker* CMRoot();
