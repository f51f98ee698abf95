#include "sdk/cm/CMNode.h"

#include "platform/cm/Activation.h"
#include "platform/cm/CMNodes.h"

#include <mutex>

Q_DECLARE_METATYPE(CMSetDataRequest)

using platform::Activation;
using platform::NodeKind;

CMNode::CMNode(CMNodes* nodes, CMPath path) : nodes_(nodes), path_(std::move(path)) {
}

CMNode::~CMNode() = default;

void CMUINode::setTitle(const TrString& title) {
    nodes()->tree().setTitle(path(), title.text());
}

CMValueNode::CMValueNode(CMNodes* nodes, const CMPath& path, QMutex* mutex)
    : CMUINode(nodes, path), mutex_(mutex) {
}

CMValueNode* CMValueNode::create(CMNodes* nodes, const CMPath& path, QMutex* mutex) {
    return nodes->add(std::unique_ptr<CMValueNode>(new CMValueNode(nodes, path, mutex)),
                      NodeKind::Value);
}

void CMValueNode::setValue(const VeskValue& value) {
    const auto lock = mutex_ ? std::unique_lock(*mutex_) : std::unique_lock<QMutex>();
    nodes()->tree().publish(path(), value);
}

void CMValueNode::setEdit(const VeskEdit& edit) {
    nodes()->tree().setChoices(path(), edit.enumPath());
}

void CMValueNode::doSetValidate(Validator validator) {
    validator_ = std::move(validator);
}

void CMValueNode::handle(const CMSetDataRequest& request) {
    if (validator_)
        return validator_(request);
    setValue(request.value());
    request.reply().setValue(true);
}

CMListRowsNode* CMListRowsNode::create(CMNodes* nodes, const CMPath& path) {
    return nodes->add(std::unique_ptr<CMListRowsNode>(new CMListRowsNode(nodes, path)),
                      NodeKind::Rows);
}

void CMListRowsNode::rowsClear() {
    rows_.clear();
    publish();
}

void CMListRowsNode::rowsAppend(const VeskRoles& row) {
    rows_.append(QVariant(row));
    publish();
}

void CMListRowsNode::handle(const CMSetDataRequest& request) {
    request.reply().setError(
        CMError(QStringLiteral("NotAValue"),
                QStringLiteral("Rows cannot be set: ") + request.path().toString()));
}

void CMListRowsNode::publish() {
    nodes()->tree().publishRows(path(), rows_);
}

CMActivateNode::CMActivateNode(CMNodes* nodes, const CMPath& path, QObject* receiver,
                               const Action& action, Qt::ConnectionType type)
    : CMUINode(nodes, path), activation_(std::make_unique<Activation>()) {
    qRegisterMetaType<CMSetDataRequest>();
    QObject::connect(static_cast<Activation*>(activation_.get()), &Activation::requested, receiver,
                     action, type);
}

CMActivateNode::~CMActivateNode() = default;

CMActivateNode* CMActivateNode::create(CMNodes* nodes, const CMPath& path, QObject* receiver,
                                       const Action& action, Qt::ConnectionType type) {
    return nodes->add(
        std::unique_ptr<CMActivateNode>(new CMActivateNode(nodes, path, receiver, action, type)),
        NodeKind::Action);
}

void CMActivateNode::handle(const CMSetDataRequest& request) {
    Q_EMIT static_cast<Activation*>(activation_.get())->requested(request);
}
