#pragma once

#include "sdk/records/VeskHash.h"

#include <QStringList>

#include <memory>

namespace platform {

/// The value at powerManagerModulesPath().
class PowerManagerModules : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(QStringList, names, Names)  // in the order of their registration, each once
};

/// The power manager: a worker with a thread of its own. It knows the modules that have registered
/// at VeskPowerManagerModuleRegisterPath() and shows them at powerManagerModulesPath().
class PowerManager {
public:
    /// The worker's nodes are in the tree when this returns. The tree must outlive the object.
    PowerManager();
    ~PowerManager();
    PowerManager(const PowerManager&) = delete;
    PowerManager& operator=(const PowerManager&) = delete;

private:
    class Thread;
    const std::unique_ptr<Thread> thread_;
};

}  // namespace platform
