#pragma once

#include "sdk/cm/CMSetDataRequest.h"

#include <QEvent>
#include <QString>

#include <mutex>

class CMAbstractWorker;

namespace platform {

/// A client's request on its way to the thread of the worker that serves the node.
class RequestEvent : public QEvent {
public:
    explicit RequestEvent(CMSetDataRequest request);
    static QEvent::Type eventType();

    const CMSetDataRequest& request() const { return request_; }

private:
    const CMSetDataRequest request_;
};

/// Where any thread leaves requests for a worker, which may go away at any time.
class WorkerMailbox {
public:
    WorkerMailbox(CMAbstractWorker* worker, QString workerName);

    const QString& workerName() const { return workerName_; }

    /// Posts the request to the worker's thread, also when called in that thread. Once the worker
    /// is gone the request is dropped.
    void post(const CMSetDataRequest& request);

    /// To be called before the worker is destroyed.
    void close();

private:
    const QString workerName_;
    std::mutex mutex_;
    CMAbstractWorker* worker_;  // guarded by mutex_
};

}  // namespace platform
