#pragma once

#include "sdk/cm/CMPath.h"

namespace platform {

// Paths of the configuration tree that only the platform itself uses.

CMPath attenuationPath();            ///< double, dB, 0 is loudest; persistent
CMPath playerDataPath();             ///< VeskPlayLogicData; watchers see every transition
CMPath playerStatisticsPath();       ///< PlayerStatistics
CMPath playerPlayFilePath();         ///< action, PlayFileRequest
CMPath playerStopPath();             ///< action
CMPath subMixDisabledPath();         ///< bool: nothing is mixed into what the player plays
CMPath endpointListenAddressPath();  ///< string, the address that the calibration server listens on
CMPath powerManagerModulesPath();    ///< PowerManagerModules, the modules that registered
CMPath powerManagerResourcesPath();  ///< PowerManagerResources, who holds what

}  // namespace platform
