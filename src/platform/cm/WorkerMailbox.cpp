#include "platform/cm/WorkerMailbox.h"

#include "sdk/cm/CMAbstractWorker.h"

#include <QCoreApplication>

namespace platform {

RequestEvent::RequestEvent(CMSetDataRequest request)
    : QEvent(eventType()), request_(std::move(request)) {
}

QEvent::Type RequestEvent::eventType() {
    static const auto type = static_cast<QEvent::Type>(QEvent::registerEventType());
    return type;
}

WorkerMailbox::WorkerMailbox(CMAbstractWorker* worker, QString workerName)
    : workerName_(std::move(workerName)), worker_(worker) {
}

void WorkerMailbox::post(const CMSetDataRequest& request) {
    const std::lock_guard lock(mutex_);
    if (worker_)
        QCoreApplication::postEvent(worker_, new RequestEvent(request));
}

void WorkerMailbox::close() {
    const std::lock_guard lock(mutex_);
    worker_ = nullptr;
}

}  // namespace platform
