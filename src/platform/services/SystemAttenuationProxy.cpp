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

    /// Reports what is applied, unless a change does so before the event loop comes round. Without
    /// it, a client whose wish changed nothing would go on believing in its wish.
    void confirm() {
        if (!item_)
            return;
        unanswered_ = true;
        QMetaObject::invokeMethod(
            proxy_, [this] { answer(); }, Qt::QueuedConnection);
    }

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
    void report() {
        unanswered_ = false;
        Q_EMIT proxy_->attenuationChanged(item_->value().double_());
    }

    /// The item may be behind what is applied, but then its report is on its way.
    void answer() {
        if (unanswered_)
            report();
    }

    SystemAttenuationProxy* const proxy_;
    const QString clientName_;
    const bool reportCurrent_;
    // Null until enabled; belongs to the watcher, which is a child of the proxy.
    CMValueItem* item_{nullptr};
    bool unanswered_{false};  // nothing has been reported since the last wish
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
    } else {
        const double applied = std::clamp(attenuation, quietest(), 0.0);
        CMRoot()->setValue(platform::attenuationPath(), VeskValue::ofDouble(applied), {});
    }
    private_->confirm();
}
