#pragma once

#include "sdk/cm/CMPath.h"
#include "sdk/cm/CMReply.h"
#include "sdk/records/VeskValue.h"

#include <QStringList>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class CMNodesWorker;

namespace platform {

/// A value that the device itself provides: no worker serves it.
struct ProvidedValue {
    CMPath path;
    VeskValue initial;       ///< empty: no value until somebody writes one
    bool persistent{false};  ///< kept in the settings store; a stored value wins over `initial`
    bool everyTransition{false};  ///< watchers see each change instead of skipping to the newest
};

/// What a node is, for tools.
enum class NodeKind { Value, Rows, Action };

/// A node as it stands, for tools.
struct NodeInfo {
    CMPath path;
    NodeKind kind{NodeKind::Value};
    VeskValue value;    ///< of a value node
    QVariantList rows;  ///< of a rows node: VeskRoles
    QString title;      ///< empty: none
    CMPath choices;     ///< rows to choose the value from; empty: free
    QString worker;     ///< name of the worker that serves it; empty: the platform
    bool persistent{false};
};

}  // namespace platform
