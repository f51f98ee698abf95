#pragma once

#include "platform/DeviceDescription.h"
#include "sdk/records/VeskHash.h"

#include <QStringList>
#include <QVariantHash>

#include <memory>

namespace platform {

template <typename Worker>
class ServiceThread;

/// The value at powerManagerModulesPath().
class PowerManagerModules : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(QStringList, names, Names)  // in the order of their registration, each once
};

/// The value at powerManagerResourcesPath().
class PowerManagerResources : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(QVariantHash, holders, Holders)  // resource to module; only what is held
};

/// The power manager: a worker with a thread of its own. It knows the modules that have registered
/// at VeskPowerManagerModuleRegisterPath() and shows them at powerManagerModulesPath().
///
/// At VeskPowerManagerResourceRequestPath() modules acquire and release resources, each of which
/// has at most one holder. A holder may acquire again, and one release frees the resource. Errors:
/// "ResourceBusy" when another module holds it, "NotHolder" for a release by any other than the
/// holder, "InvalidArgument"; and what the description says of a resource that is refused.
class PowerManager {
public:
    /// The worker's nodes are in the tree when this returns. The tree must outlive the object.
    explicit PowerManager(const QList<ResourceDescription>& resources = {});
    /// Requests to a silent resource are answered with an error now.
    ~PowerManager();
    PowerManager(const PowerManager&) = delete;
    PowerManager& operator=(const PowerManager&) = delete;

private:
    class Worker;
    const std::unique_ptr<ServiceThread<Worker>> thread_;
};

}  // namespace platform
