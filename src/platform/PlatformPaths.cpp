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

CMPath powerManagerResourcesPath() {
    return CMPath(QStringLiteral("powerManager/resources"));
}

}  // namespace platform
