#pragma once

#include "sdk/cm/CMPath.h"

/// The paths of the configuration tree that the module uses, with the type of each value.

// Dirac, served by the platform.
CMPath VeskDiracConfigPath();            ///< VeskDiracConfig
CMPath VeskDiracSlotsSettingsPath();     ///< VeskDiracSlotsList, persistent
CMPath VeskDiracUuidNamespacePath();     ///< string, a UUID
CMPath VeskDiracProductShortNamePath();  ///< string

// Dirac, served by the module.
CMPath VeskDiracActiveFilterPath();        ///< i32, -1 is "off"; a menu choice
CMPath VeskDiracFilterSettingsPath();      ///< rows, the choices of the menu
CMPath VeskDiracSlotsRuntimePath();        ///< VeskDiracSlotsList
CMPath VeskDiracRestartServerPath();       ///< action
CMPath VeskDiracForceReloadFilterPath();   ///< action
CMPath VeskDiracFilteringBackupPath();     ///< bool
CMPath VeskDiracGainAndDelayBackupPath();  ///< bool
CMPath VeskTalvorCastActivePath();         ///< bool: a Cast session plays

// The rest of the device.
CMPath VeskTalvorCorbelDiracSlotsUpdatePath();        ///< i32, number of slots in use
CMPath VeskTalvorCorbelDiracStimuliGainDB0();         ///< i32, dB
CMPath VeskTalvorCorbelDiracStimuliGainDB1();         ///< i32, dB
CMPath VeskTalvorCorbelDiracStimuliGainDB2();         ///< i32, dB
CMPath VeskTalvorCorbelDiracStimuliGainDB3();         ///< i32, dB
CMPath VeskTalvorCorbelFilteringEnabled();            ///< bool
CMPath VeskTalvorCorbelDiracCalibrationStatusPath();  ///< bool: calibration playback runs
CMPath VeskTalvorCorbelDiracClientStatusPath();       ///< bool: a calibration client is connected
CMPath VeskDeviceNamePath();                          ///< string
CMPath VeskSystemManufacturerRoonPath();              ///< string
CMPath VeskNetworkStateEthernetMAC();                 ///< string, "aa:bb:cc:dd:ee:ff"
CMPath VeskPlayerVolumeMapPath();                     ///< list of double, dB, quietest first
CMPath VeskPowerManagerModuleRegisterPath();          ///< action
CMPath VeskPowerManagerResourceRequestPath();         ///< action

// The streamer, which carries audio from the player to the speakers.
CMPath VeskStreamerDefaultPrefixPath();        ///< the streamer of the device's own outputs
CMPath VeskStreamerAttributesDisableSubMix();  ///< action below the prefix, bool: no mixing in
