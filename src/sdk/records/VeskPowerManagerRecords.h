#pragma once

#include "sdk/records/VeskHash.h"

/// Tells the power manager that a module exists.
class VeskPowerManagerModuleRegister : public VeskHash {
public:
    using VeskHash::VeskHash;
    VESK_FIELD(QString, moduleName, ModuleName)
};

/// The name under which the module deals with the power manager.
QString VeskDiracName();
