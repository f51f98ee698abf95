#pragma once

#include "modules/dirac/FilterSegment.h"
#include "modules/dirac/SlotImages.h"
#include "sdk/cm/CMInitWatcher.h"
#include "sdk/cm/CMNode.h"
#include "sdk/cm/CMNodesWorker.h"
#include "sdk/dldsp/DiracConfiguration.h"

#include <QMap>
#include <QString>
#include <QVector>

#include <atomic>
#include <memory>
#include <optional>

class AudioRecorderFactory;
class RpcHandler;
class SystemAttenuationProxy;
struct DeviceInfo;

namespace endpoint {
class Server;
}

/// The module's worker. It owns all that lives as long as the module: the calibration server and
/// its handler, the menu, the precalculated filter data and the DSP's segment.
///
/// Lives in the thread that creates it; everything runs there except what is marked "any thread",
/// which the calibration server's threads call.
class Dirac : public CMNodesWorker {
    Q_OBJECT

public:
    /// Sets the segment up, builds the menu, follows the configuration and precaches all filters.
    /// Reads no key of `config`: all settings come from the configuration tree.
    explicit Dirac(const QVariantHash& config);

    /// Gives the segment back, then ends the calibration server. Does not call stopServer(), and
    /// leaves the attenuation proxy and the recorder factory to the process.
    ~Dirac() override;

    // ---- For the calibration endpoint; any thread ----

    /// The last system attenuation, dB.
    double getAttenuation() const { return attenuation; }
    /// Sets the system attenuation, dB, without waiting for it.
    void setAttenuation(double value);
    /// Sets the stimulus gain of channel 0 to 3, in whole dB.
    void setSpeakerGain(int channel, double gain);
    /// Whether the slots settings have filtering on.
    bool getFilteringEnabled() const;
    /// The slot that the menu shows as active, -1 for "off".
    int getActiveFilterIdx() const { return activeFilterIdx; }

    // ---- Without state ----

    /// What the calibration server is started with: the configuration and the device's identity.
    static DeviceInfo deviceInfo(const VeskDiracConfig& config, const QString& deviceUuid);
    /// Copies a slot's precalculated data for one of the image's sample rates into the image. Empty
    /// or too large data leave the rate without any.
    static void populateRate(DiracConfiguration& image, const VeskDiracSlot& slot, std::size_t rate,
                             const QVector<char>& data);

    /// The name-based UUID (RFC 4122, version 5) without braces. A namespace that is not a UUID
    /// counts as the null UUID.
    static QString generateUuid5(const QString& namespaceText, const QString& name);
    /// Whether some slot of the list has this index.
    static bool slotPopulated(const VeskDiracSlotsList& list, int index);

private Q_SLOTS:
    // The order and the parameter names are part of the interface: slots are also invoked by index.
    void on_diracConfig_changed(const VeskValue& value);
    void on_mac_changed(const VeskValue& value);
    void on_activeFilter_changed(const VeskValue& value);
    void on_slotsSettings_changes(const VeskValue& value);
    void on_slotsRuntime_changed(const VeskValue& value);
    void on_watcher_done();
    void on_attenuation_changed(double serviceAttenaution);
    void on_playerData_changed(const VeskValue& newValue, const VeskValue& oldValue);

private:
    static constexpr int kNoSlot = -1;

    enum class MenuOrigin { Elsewhere, Settings, User };

    /// A selection of the menu that is about to be reported, and who made it.
    struct MenuChange {
        MenuOrigin origin;
        int slotIdx;
    };

    // Life (Dirac.cpp).
    void initSegment();
    void makeConnections();
    void registerWithPowerManager();
    QString formUuid() const;
    VeskDiracConfig diracConfig() const;
    static QString stringAt(const CMPath& path);
    static VeskDiracSlotsList storedSlots();

    // Calibration server (DiracServer.cpp).
    void startServer();
    void stopServer();
    void replaceServer();

    // Slots settings and menu (DiracMenu.cpp).
    static int activeSlotOf(const VeskDiracSlotsList& list);
    void initUIMenuNode();
    void writeRuntime(VeskValue settings);
    void updateUiMenuNode(const VeskDiracSlotsList& list);
    void appendMenuRow(const TrString& title, int slotIdx);
    void selectInMenu(int slotIdx, MenuOrigin origin);
    void validateActiveFilter(const CMSetDataRequest& request);
    void activateFilter(int idx, MenuOrigin origin);

    // Filters (DiracFilters.cpp).
    void precacheAllFilters();
    void precacheSlot(const VeskDiracSlot& slot, unsigned numSpeakers);
    void precacheRate(const VeskDiracSlot& slot, std::size_t rate, unsigned numSpeakers,
                      DiracConfiguration& image);
    QVector<char> calculate(const VeskDiracSlot& slot, std::size_t rate, unsigned numSpeakers,
                            DiracConfiguration& image) const;
    void updateSpeakerConfig(DiracConfiguration& image) const;
    bool diracSlotToFilterShm(const VeskDiracSlot& slot, DiracConfiguration& image);
    bool areAllPrecached(const VeskDiracSlotsList& list) const;
    bool isPrecached(const VeskDiracSlot& slot) const;
    bool populate(DiracConfiguration& image, const VeskDiracSlotsList& list);
    void populatePrecached(DiracConfiguration& image, const VeskDiracSlot& slot) const;

    std::shared_ptr<endpoint::Server> server;
    std::shared_ptr<RpcHandler> rpcHandler;

    std::unique_ptr<FilterSegment> segment{std::make_unique<FilterSegment>()};

    // Owned by the watcher, which is a child of the worker.
    CMValueItem* macItem{nullptr};
    CMValueItem* diracConfigItem{nullptr};
    CMValueItem* slotsSettingsItem{nullptr};
    CMValueItem* activeFilterItem{nullptr};
    CMValueItem* slotsRuntimeItem{nullptr};

    // Owned by the worker's node set.
    CMValueNode* slotsRuntimeNode{nullptr};
    CMListRowsNode* filterSettingsNode{nullptr};
    CMValueNode* activeFilterNode{nullptr};

    // Shared with the calibration server's threads.
    std::atomic<int> activeFilterIdx{0};
    std::atomic<double> attenuation{0.0};                            // dB
    std::atomic<SystemAttenuationProxy*> attenuationProxy{nullptr};  // never freed

    std::optional<MenuChange> menuChange;
    // What the settings say, while the menu waits for the report of the user's choice.
    std::optional<int> heldBackSelection;

    AudioRecorderFactory* audioRecorderFactory{nullptr};  // never freed
    QString uuid;

    QMap<int, QMap<int, QVector<char>>> precacheMap;  // slot index, sample rate in Hz, data
    QMap<int, qint64> creationTimeMap;                // slot index, creation time of that data
    SlotImages slotImages;
};
