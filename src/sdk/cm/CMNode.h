#pragma once

#include "sdk/cm/CMNodesWorker.h"
#include "sdk/cm/CMPath.h"
#include "sdk/cm/CMSetDataRequest.h"
#include "sdk/records/VeskRoles.h"
#include "sdk/services/TrString.h"

#include <QMutex>

#include <functional>
#include <memory>

/// A node that a worker serves. Created by the `create` operation of its class, owned by the
/// worker's node set, used in the worker's thread only.
class CMNode {
public:
    virtual ~CMNode();
    CMNode(const CMNode&) = delete;
    CMNode& operator=(const CMNode&) = delete;

    const CMPath& path() const { return path_; }

    /// Handles a client's write or activation and answers it.
    virtual void handle(const CMSetDataRequest& request) = 0;

protected:
    CMNode(CMNodes* nodes, CMPath path);

    CMNodes* nodes() const { return nodes_; }

private:
    CMNodes* const nodes_;
    const CMPath path_;
};

/// A node that a user interface can show.
class CMUINode : public CMNode {
public:
    void setTitle(const TrString& title);

protected:
    using CMNode::CMNode;
};

/// A node with one value. A new node's value is known and empty.
class CMValueNode : public CMUINode {
public:
    using Validator = std::function<void(const CMSetDataRequest&)>;

    /// `mutex`, when given, is held while the value changes.
    static CMValueNode* create(CMNodes* nodes, const CMPath& path, QMutex* mutex = nullptr);

    /// Changes the value and tells the watchers; an equal value changes nothing.
    void setValue(const VeskValue& value);

    /// How a user interface edits the value.
    void setEdit(const VeskEdit& edit);

    /// From now on `validator` receives each client's write, sets the value if it agrees, and
    /// answers the request. Without a validator every write is accepted.
    void doSetValidate(Validator validator);

    void handle(const CMSetDataRequest& request) override;

private:
    CMValueNode(CMNodes* nodes, const CMPath& path, QMutex* mutex);

    QMutex* const mutex_;
    Validator validator_;
};

/// A node whose content is a list of rows, such as the choices of a menu.
class CMListRowsNode : public CMUINode {
public:
    static CMListRowsNode* create(CMNodes* nodes, const CMPath& path);

    void rowsClear();
    void rowsAppend(const VeskRoles& row);

    /// Rows change through their worker only: answers with an error.
    void handle(const CMSetDataRequest& request) override;

private:
    using CMUINode::CMUINode;

    void publish();

    QVariantList rows_;
};

/// A node that runs an action when a client activates it.
class CMActivateNode : public CMUINode {
public:
    using Action = std::function<void(const CMSetDataRequest&)>;

    /// The action runs in the thread of `receiver` (directly or queued, by `type`) and must
    /// answer the request. It is dropped, and the request answered with an error, when the
    /// receiver is gone.
    static CMActivateNode* create(CMNodes* nodes, const CMPath& path, QObject* receiver,
                                  const Action& action, Qt::ConnectionType type);

    ~CMActivateNode() override;

    void handle(const CMSetDataRequest& request) override;

private:
    CMActivateNode(CMNodes* nodes, const CMPath& path, QObject* receiver, const Action& action,
                   Qt::ConnectionType type);

    const std::unique_ptr<QObject> activation_;  // its signal leads to the receiver
};
