#include "platform/PlatformPaths.h"

namespace platform {

CMPath attenuationPath() {
    return CMPath(QStringLiteral("system/attenuation"));
}

CMPath playerDataPath() {
    return CMPath(QStringLiteral("player/data"));
}

CMPath playerStatisticsPath() {
    return CMPath(QStringLiteral("player/statistics"));
}

CMPath playerPlayFilePath() {
    return CMPath(QStringLiteral("player/playFile"));
}

CMPath playerStopPath() {
    return CMPath(QStringLiteral("player/stop"));
}

CMPath subMixDisabledPath() {
    return CMPath(QStringLiteral("streamer/default/subMixDisabled"));
}

CMPath endpointListenAddressPath() {
    return CMPath(QStringLiteral("endpoint/listenAddress"));
}

CMPath powerManagerModulesPath() {
    return CMPath(QStringLiteral("powerManager/modules"));
}

CMPath powerManagerResourcesPath() {
    return CMPath(QStringLiteral("powerManager/resources"));
}

}  // namespace platform
