#include "platform/Platform.h"

#include "platform/PlatformPaths.h"
#include "platform/cm/CurrentTree.h"
#include "platform/cm/SettingsStore.h"
#include "platform/player/Player.h"
#include "platform/player/PlayerControls.h"
#include "platform/player/PlayerStatistics.h"
#include "platform/services/PowerManager.h"
#include "sdk/cm/VeskPaths.h"
#include "sdk/records/VeskPlayerRecords.h"

namespace platform {

namespace {

VeskValue ofDoubles(const QList<double>& numbers) {
    QVariantList list;
    for (const double number : numbers)
        list.append(number);
    VeskValue value;
    value.setDoubleList(list);
    return value;
}

QVariantList speakersOf(const DeviceDescription& description) {
    QVariantList speakers;
    for (const Speaker& speaker : description.speakers) {
        VeskDiracSpeakerInfo info;
        info.setName(speaker.name);
        info.setType(speaker.type);
        info.setGroupId(speaker.groupId);
        speakers.append(QVariant(info));
    }
    return speakers;
}

QVariantList microphonesOf(const DeviceDescription& description) {
    QVariantList microphones;
    for (const QString& name : description.microphones) {
        VeskDiracMicsInfo info;
        info.setName(name);
        microphones.append(QVariant(info));
    }
    return microphones;
}

VeskDiracConfig configOf(const DeviceDescription& description) {
    VeskDiracConfig config;
    config.setSpeakers(speakersOf(description));
    config.setMics(microphonesOf(description));
    config.setNumberOfSlots(description.numberOfSlots);
    config.setStimuliSampleRate(description.stimuliSampleRate);
    if (description.stimuliChannels)
        config.setStimuliChannels(*description.stimuliChannels);
    config.setIpcKey(description.ipcKey);
    config.setMicDeviceName(description.micDeviceName);
    config.setMicRecordSampleRate(description.micRecordSampleRate);
    config.setDisableShmUpdate(description.disableShmUpdate);
    return config;
}

VeskDiracSlotsList noSlots() {
    VeskDiracSlotsList list;
    list.setActiveSlot(-1);
    list.setSlots_({});
    list.setDelayGainEnabled(false);
    list.setFilteringEnabled(false);
    return list;
}

VeskValue stoppedPlayer() {
    VeskPlayLogicData data;
    data.setState(VeskPlayLogicState::Stopped);
    return VeskValue(data.hash());
}

VeskValue nothingPlayed() {
    PlayerStatistics statistics;
    statistics.setFrames(0);
    statistics.setUnderruns(0);
    return VeskValue(statistics.hash());
}

ProvidedValue fixed(const CMPath& path, const VeskValue& value) {
    return {path, value, false, false};
}

ProvidedValue persistent(const CMPath& path, const VeskValue& initial) {
    return {path, initial, true, false};
}

/// All values of a device that no worker serves.
std::vector<ProvidedValue> valuesOf(const DeviceDescription& description) {
    return {
        fixed(VeskDiracConfigPath(), VeskValue::of(configOf(description))),
        persistent(VeskDiracSlotsSettingsPath(), VeskValue::of(noSlots())),
        fixed(VeskDiracUuidNamespacePath(), VeskValue::ofString(description.uuidNamespace)),
        fixed(VeskDiracProductShortNamePath(), VeskValue::ofString(description.productShortName)),
        fixed(VeskTalvorCorbelDiracSlotsUpdatePath(), VeskValue::ofI32(0)),
        fixed(VeskTalvorCorbelDiracStimuliGainDB0(), VeskValue::ofI32(0)),
        fixed(VeskTalvorCorbelDiracStimuliGainDB1(), VeskValue::ofI32(0)),
        fixed(VeskTalvorCorbelDiracStimuliGainDB2(), VeskValue::ofI32(0)),
        fixed(VeskTalvorCorbelDiracStimuliGainDB3(), VeskValue::ofI32(0)),
        fixed(VeskTalvorCorbelFilteringEnabled(), VeskValue::ofBool(false)),
        fixed(VeskTalvorCorbelDiracCalibrationStatusPath(), VeskValue::ofBool(false)),
        fixed(VeskTalvorCorbelDiracClientStatusPath(), VeskValue::ofBool(false)),
        fixed(VeskDeviceNamePath(), VeskValue::ofString(description.deviceName)),
        fixed(VeskSystemManufacturerRoonPath(), VeskValue::ofString(description.manufacturer)),
        fixed(VeskNetworkStateEthernetMAC(), VeskValue::ofString(description.ethernetMac)),
        fixed(VeskPlayerVolumeMapPath(), ofDoubles(description.volumeMap)),
        fixed(endpointListenAddressPath(), VeskValue::ofString(description.listenAddress)),
        persistent(attenuationPath(), VeskValue::ofDouble(0.0)),
        fixed(playerStatisticsPath(), nothingPlayed()),
        {playerDataPath(), stoppedPlayer(), false, true},
    };
}

}  // namespace

class Platform::Private {
public:
    Private(const DeviceDescription& description, std::unique_ptr<AudioProcessor> processor)
        : store_(openStore(description.stateDirectory)),
          storing_(provide(description)),
          player_(tree_, description.playbackDeviceName, std::move(processor)),
          powerManager_(description.resources) {
        qRegisterMetaType<VeskValue>("VeskValue");
        if (store_) {
            tree_->setStorage([this](std::chrono::milliseconds timeout) {
                return store_->waitUntilStored(timeout);
            });
        }
    }

    Tree& tree() { return *tree_; }

private:
    static std::unique_ptr<SettingsStore> openStore(const QString& directory) {
        if (directory.isEmpty())
            return nullptr;
        return std::make_unique<SettingsStore>(directory);
    }

    /// Returns what carries the changes of persistent values to the store.
    std::vector<Subscription> provide(const DeviceDescription& description) {
        std::vector<Subscription> storing;
        for (const ProvidedValue& value : valuesOf(description)) {
            tree_->provide(store_ ? withStoredValue(value) : value);
            if (store_ && value.persistent)
                storing.push_back(tree_->subscribe(value.path, [this](const Change& change) {
                    store_->write(change.path, change.value);
                }));
        }
        return storing;
    }

    ProvidedValue withStoredValue(ProvidedValue value) {
        if (value.persistent)
            value.initial = store_->take(value.path).value_or(value.initial);
        return value;
    }

    const std::shared_ptr<Tree> tree_{std::make_shared<Tree>()};
    const CurrentTree current_{tree_};
    const std::unique_ptr<SettingsStore> store_;  // null: settings live in memory only
    const std::vector<Subscription> storing_;

    // What works on the tree and its values.
    Player player_;
    const PlayerControls playerControls_{player_};
    const PowerManager powerManager_;
};

Platform::Platform(const DeviceDescription& description, std::unique_ptr<AudioProcessor> processor)
    : private_(std::make_unique<Private>(description, std::move(processor))) {
}

Platform::~Platform() = default;

Tree& Platform::tree() {
    return private_->tree();
}

}  // namespace platform
