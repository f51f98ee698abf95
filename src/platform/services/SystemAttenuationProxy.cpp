#include "sdk/services/SystemAttenuationProxy.h"

#include "platform/Log.h"
#include "platform/PlatformPaths.h"
#include "sdk/cm/CMAbstractWorker.h"
#include "sdk/cm/CMInitWatcher.h"
#include "sdk/cm/VeskPaths.h"

#include <algorithm>
#include <cmath>

using platform::logger;

namespace {

/// dB: the first entry of the volume map is the quietest that the device offers.
double quietest() {
    const QVariantList map = VeskValue(CMRoot()->getValue(VeskPlayerVolumeMapPath())).doubleList();
    return map.isEmpty() ? 0 : std::min(map.first().toDouble(), 0.0);
}

}  // namespace

class SystemAttenuationProxy::Private {
public:
    Private(SystemAttenuationProxy* proxy, const QString& clientName, bool reportCurrent)
        : proxy_(proxy), clientName_(clientName), reportCurrent_(reportCurrent) {}

    const QString& clientName() const { return clientName_; }

    void follow() {
        if (item_)
            return;
        auto* const watcher = new CMInitWatcher(proxy_, clientName_);
        item_ = watcher->newCMValueItem(platform::attenuationPath(), [this](CMValueItem* item) {
            connect(item, &CMValueItem::changed, proxy_, [this] { report(); });
        });
        if (reportCurrent_)
            connect(watcher, &CMInitWatcher::done, proxy_, [this] { report(); });
    }

private:
    void report() { Q_EMIT proxy_->attenuationChanged(item_->value().double_()); }

    SystemAttenuationProxy* const proxy_;
    const QString clientName_;
    const bool reportCurrent_;
    // Null until enabled; belongs to the watcher, which is a child of the proxy.
    CMValueItem* item_{nullptr};
};

SystemAttenuationProxy::SystemAttenuationProxy(const QString& clientName, int /*fadeMilliseconds*/,
                                               bool reportCurrent)
    : private_(std::make_unique<Private>(this, clientName, reportCurrent)) {
}

SystemAttenuationProxy::~SystemAttenuationProxy() = default;

void SystemAttenuationProxy::enable() {
    private_->follow();
}

void SystemAttenuationProxy::setAttenuation(double attenuation) {
    if (std::isnan(attenuation)) {
        LOG4CPLUS_WARN(logger, "Attenuation of " << private_->clientName().toStdString()
                                                 << " is not a number, ignored");
        return;
    }
    const double applied = std::clamp(attenuation, quietest(), 0.0);
    CMRoot()->setValue(platform::attenuationPath(), VeskValue::ofDouble(applied), {});
}
