#pragma once

#include "sdk/records/VeskHash.h"

/// Tells the power manager that a module exists.
class VeskPowerManagerModuleRegister : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(QString, moduleName, ModuleName)
};

/// What modules share and ask for.
struct VeskPowerManagerResources {
    enum Enum { Microphone = 3 };
};

struct VeskPowerModuleActions {
    enum Enum { Acquire = 0, Release = 2 };
};

/// Asks the power manager for a resource, or gives it back.
class VeskPowerManagerResourceRequest : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(QString, moduleName, ModuleName)
    VESK_FIELD(VeskPowerManagerResources::Enum, resource, Resource)
    VESK_FIELD(VeskPowerModuleActions::Enum, action, Action)
};

/// The name under which the module deals with the power manager.
QString VeskDiracName();
