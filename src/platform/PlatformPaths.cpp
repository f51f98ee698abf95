#include "platform/PlatformPaths.h"

namespace platform {

CMPath attenuationPath() {
    return CMPath(QStringLiteral("system/attenuation"));
}

CMPath playerDataPath() {
    return CMPath(QStringLiteral("player/data"));
}

CMPath endpointListenAddressPath() {
    return CMPath(QStringLiteral("endpoint/listenAddress"));
}

CMPath powerManagerModulesPath() {
    return CMPath(QStringLiteral("powerManager/modules"));
}

}  // namespace platform
