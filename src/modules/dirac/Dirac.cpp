#include "modules/dirac/Dirac.h"

#include "modules/dirac/AudioRecorder.h"
#include "modules/dirac/RpcHandler.h"
#include "modules/dirac/ScopedTrace.h"
#include "sdk/cm/VeskPaths.h"
#include "sdk/endpoint/Server.h"
#include "sdk/player/PlayLogicInterface.h"
#include "sdk/records/VeskPowerManagerRecords.h"
#include "sdk/services/SystemAttenuationProxy.h"

namespace {

constexpr int kAttenuationFade = 250;  // ms

/// Connects a signal; one that cannot be connected ends the process.
template <typename Sender, typename Signal, typename Slot>
void connectSignal(Sender* sender, Signal signal, Dirac* receiver, Slot slot) {
    const bool connected = QObject::connect(sender, signal, receiver, slot);
    Q_ASSERT(connected);
}

}  // namespace

Dirac::Dirac(const QVariantHash& config) : CMNodesWorker(config, QStringLiteral("Dirac")) {
    qRegisterMetaType<VeskValue>("VeskValue");
    initSegment();
    DIRAC_SCOPED_TRACE();
    initUIMenuNode();
    makeConnections();
    precacheAllFilters();
    CMValueNode::create(nodes(), VeskDiracFilteringBackupPath());
    CMValueNode::create(nodes(), VeskDiracGainAndDelayBackupPath());
    CMValueNode::create(nodes(), VeskTalvorCastActivePath());
    registerWithPowerManager();
}

Dirac::~Dirac() {
    // By hand, because the server's threads use the other members until the server is gone. Its
    // reference keeps the handler alive until then.
    precacheMap.clear();
    creationTimeMap.clear();
    uuid.clear();
    segment.reset();
    rpcHandler.reset();
    server.reset();
}

void Dirac::initSegment() {
    if (!segment->lock.lock())
        return;
    bool created = false;
    segment->sharedMemInit(created);
    segment->lock.unlock();
}

void Dirac::makeConnections() {
    DIRAC_SCOPED_TRACE();
    auto* const watcher = new CMInitWatcher(this, QStringLiteral("Dirac"));
    connectSignal(watcher, &CMInitWatcher::done, this, &Dirac::on_watcher_done);

    const auto watch = [this, watcher](const CMPath& path, auto handler) {
        return watcher->newCMValueItem(path, [this, handler](CMValueItem* item) {
            connectSignal(item, &CMValueItem::changed, this, handler);
        });
    };
    diracConfigItem = watch(VeskDiracConfigPath(), &Dirac::on_diracConfig_changed);
    activeFilterItem = watch(VeskDiracActiveFilterPath(), &Dirac::on_activeFilter_changed);
    slotsSettingsItem = watch(VeskDiracSlotsSettingsPath(), &Dirac::on_slotsSettings_changes);
    slotsRuntimeNode = CMValueNode::create(nodes(), VeskDiracSlotsRuntimePath());
    slotsRuntimeItem = watch(VeskDiracSlotsRuntimePath(), &Dirac::on_slotsRuntime_changed);
    macItem = watch(VeskNetworkStateEthernetMAC(), &Dirac::on_mac_changed);
    watch(PlayLogicInterface::playerInstance()->dataPath(), &Dirac::on_playerData_changed);

    const auto restartServerAction = [this](const CMSetDataRequest& request) {
        const ScopedTrace trace({__PRETTY_FUNCTION__, __FILE__, __LINE__});
        stopServer();
        request.reply().setValue(QVariant());
    };
    const auto forceReloadFilterAction = [this](const CMSetDataRequest& request) {
        LOG4CPLUS_INFO(logger, "Forcing reload active filter");
        on_slotsSettings_changes(slotsSettingsItem->value());
        request.reply().setValue(true);
    };
    CMActivateNode::create(nodes(), VeskDiracRestartServerPath(), this, restartServerAction,
                           Qt::QueuedConnection);
    CMActivateNode::create(nodes(), VeskDiracForceReloadFilterPath(), this, forceReloadFilterAction,
                           Qt::QueuedConnection);
}

void Dirac::registerWithPowerManager() {
    VeskPowerManagerModuleRegister registration;
    registration.setModuleName(VeskDiracName());
    CMRoot()->invoke(VeskPowerManagerModuleRegisterPath(), registration, {});
}

void Dirac::on_watcher_done() {
    DIRAC_SCOPED_TRACE();
    const VeskValue settings = slotsSettingsItem->value();
    updateUiMenuNode(settings.diracSlotsList());
    writeRuntime(settings);

    auto* const proxy = new SystemAttenuationProxy(QStringLiteral("Dirac"), kAttenuationFade, true);
    attenuationProxy = proxy;
    proxy->enable();
    connectSignal(proxy, &SystemAttenuationProxy::attenuationChanged, this,
                  &Dirac::on_attenuation_changed);

    uuid = formUuid();
    LOG4CPLUS_TRACE(logger, "DIrac UUID = " << uuid.toStdString());

    const VeskDiracConfig config = diracConfig();
    audioRecorderFactory =
        new AudioRecorderFactory(config.micDeviceName(), config.micRecordSampleRate());
    startServer();
}

/// The same product with the same MAC always has the same UUID.
QString Dirac::formUuid() const {
    const QString namespaceText = stringAt(VeskDiracUuidNamespacePath());
    const QString product = stringAt(VeskDiracProductShortNamePath()).toUpper();
    const QString mac = macItem->value().string().remove(QLatin1Char(':')).toUpper();
    return generateUuid5(namespaceText, product + mac);
}

void Dirac::on_diracConfig_changed(const VeskValue& value) {
    DIRAC_SCOPED_TRACE();
    const VeskDiracConfig config = value.diracConfig();
    LOG4CPLUS_INFO(logger, "on_diracConfig_changed: " << config);
    if (config.disableShmUpdate())
        return;
    startServer();
    LOG4CPLUS_INFO(logger, "Trigger DIRAC start server");
}

VeskDiracConfig Dirac::diracConfig() const {
    return diracConfigItem->value().diracConfig();
}

QString Dirac::stringAt(const CMPath& path) {
    return VeskValue(CMRoot()->getValue(path)).string();
}

/// The slots settings as they stand, which the item may be behind.
VeskDiracSlotsList Dirac::storedSlots() {
    return VeskValue(CMRoot()->getValue(VeskDiracSlotsSettingsPath())).diracSlotsList();
}
