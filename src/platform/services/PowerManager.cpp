#include "platform/services/PowerManager.h"

#include "platform/PlatformPaths.h"
#include "platform/services/ReadOnly.h"
#include "platform/services/ServiceThread.h"
#include "sdk/cm/CMNode.h"
#include "sdk/cm/CMNodesWorker.h"
#include "sdk/cm/VeskPaths.h"
#include "sdk/records/VeskPowerManagerRecords.h"

#include <deque>
#include <map>

namespace platform {
namespace {

constexpr std::size_t kMostUnanswered = 64;

void refuse(const CMSetDataRequest& request, const QString& name, const QString& text) {
    request.reply().setError(CMError(name, text));
}

QString resourceName(int resource) {
    return resource == VeskPowerManagerResources::Microphone ? QStringLiteral("microphone")
                                                             : QString();
}

/// As it came: a client may send numbers that are not in the record's enumeration. -1: none.
int numberIn(const VeskHash& record, const QString& key) {
    return record.contains(key) ? record.value(key).toInt() : -1;
}

/// A resource, and the module that holds it.
struct Resource {
    ResourceDescription description;
    QString holder;  // empty: nobody
};

std::map<QString, Resource> resourcesOf(const QList<ResourceDescription>& described) {
    const QString microphone = resourceName(VeskPowerManagerResources::Microphone);
    std::map<QString, Resource> resources;
    resources[microphone].description.name = microphone;
    for (const ResourceDescription& resource : described)
        resources[resource.name] = {resource, resource.holder};
    return resources;
}

}  // namespace

class PowerManager::Worker : public CMNodesWorker {
public:
    explicit Worker(const QList<ResourceDescription>& resources)
        : CMNodesWorker({}, QStringLiteral("PowerManager")), resources_(resourcesOf(resources)) {
        serve(VeskPowerManagerModuleRegisterPath(), &Worker::registerModule);
        serve(VeskPowerManagerResourceRequestPath(), &Worker::request);
        makeReadOnly(modulesNode_);
        makeReadOnly(resourcesNode_);
        showModules();
        showResources();
    }

private:
    using Action = void (Worker::*)(const CMSetDataRequest& request);

    void serve(const CMPath& path, Action action) {
        CMActivateNode::create(
            nodes(), path, this,
            [this, action](const CMSetDataRequest& request) { (this->*action)(request); },
            Qt::DirectConnection);
    }

    void registerModule(const CMSetDataRequest& request) {
        const QString name = VeskPowerManagerModuleRegister(request.value().hash()).moduleName();
        if (name.isEmpty())
            return refuse(request, QStringLiteral("InvalidArgument"),
                          QStringLiteral("A module without a name cannot be registered"));
        if (!names_.contains(name))
            names_.append(name);
        showModules();
        request.reply().setValue(true);
    }

    void request(const CMSetDataRequest& request) {
        const VeskPowerManagerResourceRequest wish(request.value().hash());
        const int number = numberIn(wish, VeskPowerManagerResourceRequest::Resource());
        const auto resource = resources_.find(resourceName(number));
        if (resource == resources_.end())
            return refuse(request, QStringLiteral("InvalidArgument"),
                          QStringLiteral("There is no resource %1").arg(number));
        if (wish.moduleName().isEmpty())
            return refuse(request, QStringLiteral("InvalidArgument"),
                          QStringLiteral("A module without a name cannot have a resource"));
        if (resource->second.description.behaviour == ResourceBehaviour::Silent)
            return leaveUnanswered(request);
        const CMError fault = carryOut(wish, resource->second);
        showResources();
        if (fault.isError())
            request.reply().setError(fault);
        else
            request.reply().setValue(true);
    }

    /// Keeps the request: dropping it would answer it. The oldest one goes when there are too many.
    void leaveUnanswered(const CMSetDataRequest& request) {
        unanswered_.push_back(request);
        if (unanswered_.size() > kMostUnanswered)
            unanswered_.pop_front();
    }

    /// Why it cannot be; no error when it is done.
    static CMError carryOut(const VeskPowerManagerResourceRequest& wish, Resource& resource) {
        const int action = numberIn(wish, VeskPowerManagerResourceRequest::Action());
        if (action == VeskPowerModuleActions::Acquire)
            return acquire(wish.moduleName(), resource);
        if (action == VeskPowerModuleActions::Release)
            return release(wish.moduleName(), resource);
        return {QStringLiteral("InvalidArgument"),
                QStringLiteral("There is no action %1").arg(action)};
    }

    static CMError acquire(const QString& module, Resource& resource) {
        const ResourceDescription& described = resource.description;
        if (described.behaviour == ResourceBehaviour::Refused)
            return {described.errorName, described.errorText};
        if (!resource.holder.isEmpty() && resource.holder != module)
            return {QStringLiteral("ResourceBusy"),
                    QStringLiteral("The %1 is held by %2").arg(described.name, resource.holder)};
        resource.holder = module;
        return {};
    }

    static CMError release(const QString& module, Resource& resource) {
        if (resource.holder != module)
            return {
                QStringLiteral("NotHolder"),
                QStringLiteral("The %1 is not held by %2").arg(resource.description.name, module)};
        resource.holder.clear();
        return {};
    }

    void showModules() {
        PowerManagerModules modules;
        modules.setNames(names_);
        modulesNode_->setValue(VeskValue(modules.hash()));
    }

    void showResources() {
        QVariantHash holders;
        for (const auto& [name, resource] : resources_)
            if (!resource.holder.isEmpty())
                holders.insert(name, resource.holder);
        PowerManagerResources shown;
        shown.setHolders(holders);
        resourcesNode_->setValue(VeskValue(shown.hash()));
    }

    CMValueNode* const modulesNode_{CMValueNode::create(nodes(), powerManagerModulesPath())};
    CMValueNode* const resourcesNode_{CMValueNode::create(nodes(), powerManagerResourcesPath())};
    QStringList names_;
    std::map<QString, Resource> resources_;
    std::deque<CMSetDataRequest> unanswered_;
};

PowerManager::PowerManager(const QList<ResourceDescription>& resources)
    : thread_(std::make_unique<ServiceThread<Worker>>(QStringLiteral("PowerManager"),
                                                      [resources] { return Worker(resources); })) {
}

PowerManager::~PowerManager() = default;

}  // namespace platform
