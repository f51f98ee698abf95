#pragma once

#include "sdk/cm/CMPath.h"

namespace platform {

// Paths of the configuration tree that only the platform itself uses.

CMPath attenuationPath();            ///< double, dB, 0 is loudest; persistent
CMPath playerDataPath();             ///< VeskPlayLogicData; watchers see every transition
CMPath endpointListenAddressPath();  ///< string, the address that the calibration server listens on
CMPath powerManagerModulesPath();    ///< PowerManagerModules, the modules that registered

}  // namespace platform
