#include "sdk/cm/CMAbstractWorker.h"

#include "platform/cm/CurrentTree.h"
#include "platform/cm/WorkerMailbox.h"

CMAbstractWorker::CMAbstractWorker(QObject* parent) : QObject(parent) {
}

CMAbstractWorker::~CMAbstractWorker() = default;

QVariant CMAbstractWorker::getValue(const CMPath& path) const {
    const auto value = platform::currentTree()->read(path);
    return value ? QVariant(*value) : QVariant();
}

void CMAbstractWorker::setValue(const CMPath& path, const VeskValue& value,
                                const CMReply<QVariant>& reply) {
    platform::currentTree()->write(path, value, reply);
}

void CMAbstractWorker::invoke(const CMPath& path, const QVariant& arguments,
                              const CMReply<QVariant>& reply) {
    platform::currentTree()->invoke(path, VeskHash(arguments), reply);
}

void CMAbstractWorker::setDataRequest(const CMSetDataRequest& request) {
    request.reply().setError(
        CMError(QStringLiteral("NotServed"),
                QStringLiteral("The worker does not serve ") + request.path().toString()));
}

bool CMAbstractWorker::event(QEvent* event) {
    if (event->type() != platform::RequestEvent::eventType())
        return QObject::event(event);
    setDataRequest(static_cast<platform::RequestEvent*>(event)->request());
    return true;
}

CMAbstractWorker* CMRoot() {
    platform::currentTree();
    static CMAbstractWorker root;
    return &root;
}
