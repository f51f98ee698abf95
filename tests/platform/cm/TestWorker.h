#pragma once

#include "sdk/cm/CMNodesWorker.h"

#include <QThread>

/// A worker without nodes, for tests to add theirs.
class TestWorker : public CMNodesWorker {
public:
    explicit TestWorker(const QString& name = QStringLiteral("Test")) : CMNodesWorker({}, name) {}
};
