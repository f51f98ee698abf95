#include "sdk/cm/CMInitWatcher.h"
#include "sdk/cm/CMNode.h"
#include "sdk/cm/CMNodesWorker.h"

#include <QFile>
#include <QThread>

namespace {

QString threadName() {
    return QThread::currentThread()->objectName();
}

VeskRoles row(const char* title, int value) {
    VeskRoles roles;
    roles.setTitle(TrString("Test", title));
    roles.setValue(VeskValue::ofI32(value));
    roles.setType(101);
    return roles;
}

/// A worker with one node of each kind. It refuses the choice 13, leaves a file behind when it is
/// destroyed, and follows a path that nothing provides.
class TestWorker : public CMNodesWorker {
public:
    explicit TestWorker(const QVariantHash& config)
        : CMNodesWorker(config, QStringLiteral("Test")), watcher_(this, QStringLiteral("Test")) {
        createChoice();
        CMValueNode::create(nodes(), CMPath("test/thread"))
            ->setValue(VeskValue::ofString(threadName()));
        CMValueNode::create(nodes(), CMPath("test/empty"));
        createAction("test/echo", [](const CMSetDataRequest& request) {
            request.reply().setValue(QVariant(request.value().hash()));
        });
        createAction("test/fail", [](const CMSetDataRequest& request) {
            request.reply().setError(CMError(QStringLiteral("Out of order")));
        });
        createAction("test/silence",
                     [this](const CMSetDataRequest& request) { unanswered_ = request; });
        watcher_.newCMValueItem(CMPath("test/nobodyProvides"), [](CMValueItem*) {});
    }

    ~TestWorker() override {
        QFile file(QStringLiteral("worker-ended"));
        file.open(QIODevice::WriteOnly);
        file.write(threadName().toUtf8());
    }

private:
    void createAction(const char* path, CMActivateNode::Action action) {
        CMActivateNode::create(nodes(), CMPath(path), this, std::move(action),
                               Qt::QueuedConnection);
    }

    void createChoice() {
        CMListRowsNode* const choices = CMListRowsNode::create(nodes(), CMPath("test/choices"));
        choices->rowsAppend(row("off", -1));
        choices->rowsAppend(row("Filter: Sofa", 3));
        choices->rowsAppend(row("Twin", 5));
        choices->rowsAppend(row("Twin", 6));

        VeskEdit edit;
        edit.setType(1);
        edit.setEnumPath(choices->path());
        CMValueNode* const choice = CMValueNode::create(nodes(), CMPath("test/choice"));
        choice->setTitle(TrString("Test", "Choice"));
        choice->setEdit(edit);
        choice->setValue(VeskValue::ofI32(-1));
        choice->doSetValidate([choice](const CMSetDataRequest& request) {
            if (request.value().i32_() == 13)
                return request.reply().setError(CMError(QStringLiteral("Unlucky number")));
            choice->setValue(request.value());
            request.reply().setValue(true);
        });
    }

    CMInitWatcher watcher_;
    CMSetDataRequest unanswered_;
};

}  // namespace

extern "C" Q_DECL_EXPORT CMAbstractWorker* worker_create(void* /*ignored*/,
                                                         const QVariantHash& config) {
    return new TestWorker(config);
}
