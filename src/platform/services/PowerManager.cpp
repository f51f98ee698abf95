#include "platform/services/PowerManager.h"

#include "platform/PlatformPaths.h"
#include "sdk/cm/CMNode.h"
#include "sdk/cm/CMNodesWorker.h"
#include "sdk/cm/VeskPaths.h"
#include "sdk/records/VeskPowerManagerRecords.h"

#include <QThread>

#include <latch>

namespace platform {
namespace {

class Worker : public CMNodesWorker {
public:
    Worker() : CMNodesWorker({}, QStringLiteral("PowerManager")) {
        CMActivateNode::create(
            nodes(), VeskPowerManagerModuleRegisterPath(), this,
            [this](const CMSetDataRequest& request) { registerModule(request); },
            Qt::DirectConnection);
        modulesNode_->doSetValidate([](const CMSetDataRequest& request) {
            refuse(request, QStringLiteral("ReadOnly"),
                   QStringLiteral("Modules register themselves at ") +
                       VeskPowerManagerModuleRegisterPath().toString());
        });
        show();
    }

private:
    static void refuse(const CMSetDataRequest& request, const QString& name, const QString& text) {
        request.reply().setError(CMError(name, text));
    }

    void registerModule(const CMSetDataRequest& request) {
        const QString name = VeskPowerManagerModuleRegister(request.value().hash()).moduleName();
        if (name.isEmpty())
            return refuse(request, QStringLiteral("InvalidArgument"),
                          QStringLiteral("A module without a name cannot be registered"));
        if (!names_.contains(name))
            names_.append(name);
        show();
        request.reply().setValue(true);
    }

    void show() {
        PowerManagerModules modules;
        modules.setNames(names_);
        modulesNode_->setValue(VeskValue(modules.hash()));
    }

    CMValueNode* const modulesNode_{CMValueNode::create(nodes(), powerManagerModulesPath())};
    QStringList names_;
};

}  // namespace

class PowerManager::Thread : public QThread {
public:
    Thread() {
        setObjectName(QStringLiteral("PowerManager"));
        start();
        ready_.wait();
    }
    ~Thread() override {
        quit();
        wait();
    }
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

protected:
    void run() override {
        Worker worker;
        ready_.count_down();
        exec();
    }

private:
    std::latch ready_{1};
};

PowerManager::PowerManager() : thread_(std::make_unique<Thread>()) {
}

PowerManager::~PowerManager() = default;

}  // namespace platform
