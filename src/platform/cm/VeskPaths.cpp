#include "sdk/cm/VeskPaths.h"

CMPath VeskDiracConfigPath() {
    return CMPath(QStringLiteral("dirac/config"));
}

CMPath VeskDiracSlotsSettingsPath() {
    return CMPath(QStringLiteral("dirac/slots"));
}

CMPath VeskDiracUuidNamespacePath() {
    return CMPath(QStringLiteral("dirac/uuidNamespace"));
}

CMPath VeskDiracProductShortNamePath() {
    return CMPath(QStringLiteral("dirac/productShortName"));
}

CMPath VeskDiracActiveFilterPath() {
    return CMPath(QStringLiteral("dirac/activeFilter"));
}

CMPath VeskDiracFilterSettingsPath() {
    return CMPath(QStringLiteral("dirac/filterSettings"));
}

CMPath VeskDiracSlotsRuntimePath() {
    return CMPath(QStringLiteral("dirac/slotsRuntime"));
}

CMPath VeskDiracRestartServerPath() {
    return CMPath(QStringLiteral("dirac/restartServer"));
}

CMPath VeskDiracForceReloadFilterPath() {
    return CMPath(QStringLiteral("dirac/forceReloadFilter"));
}

CMPath VeskDiracFilteringBackupPath() {
    return CMPath(QStringLiteral("dirac/filteringBackup"));
}

CMPath VeskDiracGainAndDelayBackupPath() {
    return CMPath(QStringLiteral("dirac/gainAndDelayBackup"));
}

CMPath VeskTalvorCastActivePath() {
    return CMPath(QStringLiteral("talvor/castActive"));
}

CMPath VeskTalvorCorbelDiracSlotsUpdatePath() {
    return CMPath(QStringLiteral("talvor/corbel/diracSlotsUpdate"));
}

CMPath VeskTalvorCorbelDiracStimuliGainDB0() {
    return CMPath(QStringLiteral("talvor/corbel/diracStimuliGainDB0"));
}

CMPath VeskTalvorCorbelDiracStimuliGainDB1() {
    return CMPath(QStringLiteral("talvor/corbel/diracStimuliGainDB1"));
}

CMPath VeskTalvorCorbelDiracStimuliGainDB2() {
    return CMPath(QStringLiteral("talvor/corbel/diracStimuliGainDB2"));
}

CMPath VeskTalvorCorbelDiracStimuliGainDB3() {
    return CMPath(QStringLiteral("talvor/corbel/diracStimuliGainDB3"));
}

CMPath VeskTalvorCorbelFilteringEnabled() {
    return CMPath(QStringLiteral("talvor/corbel/filteringEnabled"));
}

CMPath VeskTalvorCorbelDiracCalibrationStatusPath() {
    return CMPath(QStringLiteral("talvor/corbel/diracCalibrationStatus"));
}

CMPath VeskTalvorCorbelDiracClientStatusPath() {
    return CMPath(QStringLiteral("talvor/corbel/diracClientStatus"));
}

CMPath VeskDeviceNamePath() {
    return CMPath(QStringLiteral("device/name"));
}

CMPath VeskSystemManufacturerRoonPath() {
    return CMPath(QStringLiteral("system/manufacturer"));
}

CMPath VeskNetworkStateEthernetMAC() {
    return CMPath(QStringLiteral("network/ethernet/mac"));
}

CMPath VeskPlayerVolumeMapPath() {
    return CMPath(QStringLiteral("player/volumeMap"));
}

CMPath VeskPowerManagerModuleRegisterPath() {
    return CMPath(QStringLiteral("powerManager/registerModule"));
}

CMPath VeskPowerManagerResourceRequestPath() {
    return CMPath(QStringLiteral("powerManager/requestResource"));
}

CMPath VeskStreamerDefaultPrefixPath() {
    return CMPath(QStringLiteral("streamer/default"));
}

CMPath VeskStreamerAttributesDisableSubMix() {
    return CMPath(QStringLiteral("attributes/disableSubMix"));
}
