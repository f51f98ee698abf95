#include "modules/dirac/Dirac.h"
#include "platform/PlatformPaths.h"
#include "platform/services/PowerManager.h"
#include "sdk/cm/VeskPaths.h"
#include "sdk/records/VeskPowerManagerRecords.h"
#include "support/DeviceFixture.h"

#include <QMetaMethod>
#include <gmock/gmock.h>

#include <string>
#include <vector>

extern "C" CMAbstractWorker* worker_create(void* ignored, const QVariantHash& config);

using dio::endpoint::Void;
using testing::ElementsAre;

namespace {

class DiracTest : public DeviceFixture {
protected:
    /// The worker's slots by index: "name(type parameter, ...)".
    static std::vector<std::string> handlerTable() {
        const QMetaObject& type = Dirac::staticMetaObject;
        std::vector<std::string> table;
        for (int i = type.methodOffset(); i < type.methodCount(); ++i)
            table.push_back(textOf(type.method(i)));
        return table;
    }

    static QMetaMethod handler(int index) {
        const QMetaObject& type = Dirac::staticMetaObject;
        return type.method(type.methodOffset() + index);
    }

private:
    static std::string textOf(const QMetaMethod& method) {
        QByteArrayList parameters;
        const QByteArrayList names = method.parameterNames();
        const QByteArrayList types = method.parameterTypes();
        for (int i = 0; i < names.size(); ++i)
            parameters.append(types.at(i) + ' ' + names.at(i));
        return (method.name() + '(' + parameters.join(", ") + ')').toStdString();
    }
};

}  // namespace

TEST_F(DiracTest, IsMadeByTheEntryPointFromAnEmptyConfiguration) {
    startPlatform();
    WorkerThread thread;
    thread.run([] {
        const std::unique_ptr<CMAbstractWorker> worker(worker_create(nullptr, QVariantHash()));
        const auto* const dirac = qobject_cast<Dirac*>(worker.get());
        ASSERT_NE(dirac, nullptr);
        EXPECT_EQ(dirac->name(), QStringLiteral("Dirac"));
        EXPECT_TRUE(dirac->config().isEmpty());
    });
}

TEST_F(DiracTest, KeepsTheConfigurationItIsMadeFrom) {
    startPlatform();
    WorkerThread thread;
    thread.run([] {
        const Dirac dirac({{QStringLiteral("key"), 1}});
        EXPECT_EQ(dirac.config().value(QStringLiteral("key")), QVariant(1));
    });
}

TEST_F(DiracTest, TracesItsConstruction) {
    startPlatform();
    constructWorker();
    EXPECT_TRUE(logged("TRACE Enter Dirac::Dirac(const QVariantHash&)"));
    EXPECT_TRUE(logged("TRACE Leave Dirac::Dirac(const QVariantHash&)"));
}

TEST_F(DiracTest, HasAFixedHandlerTable) {
    EXPECT_THAT(
        handlerTable(),
        ElementsAre("on_diracConfig_changed(VeskValue value)", "on_mac_changed(VeskValue value)",
                    "on_activeFilter_changed(VeskValue value)",
                    "on_slotsSettings_changes(VeskValue value)",
                    "on_slotsRuntime_changed(VeskValue value)", "on_watcher_done()",
                    "on_attenuation_changed(double serviceAttenaution)",
                    "on_playerData_changed(VeskValue newValue, VeskValue oldValue)"));
}

TEST_F(DiracTest, ReachesAHandlerByItsIndex) {
    startPlatform();
    constructWorker();
    settle();  // the proxy reports the present attenuation once
    inWorkerThread(
        [this] { handler(6).invoke(&worker(), Qt::DirectConnection, Q_ARG(double, -12.5)); });
    EXPECT_EQ(worker().getAttenuation(), -12.5);
}

TEST_F(DiracTest, QueuesAHandlerWithAValue) {
    startPlatform();
    constructWorker();
    handler(1).invoke(&worker(), Qt::QueuedConnection,
                      Q_ARG(VeskValue, VeskValue::ofString(QStringLiteral("11:22"))));
    settle();
    EXPECT_TRUE(logged("TRACE Enter void Dirac::on_mac_changed(const VeskValue&)"));
}

TEST_F(DiracTest, StartsWithoutAttenuationAndActiveFilter) {
    startPlatform();
    constructWorker([this] {
        EXPECT_EQ(worker().getAttenuation(), 0.0);
        EXPECT_EQ(worker().getActiveFilterIdx(), 0);
    });
}

TEST_F(DiracTest, ProvidesTheBackupsAndTheCastFlag) {
    startPlatform();
    constructWorker();
    settle();
    for (const CMPath& path : {VeskDiracFilteringBackupPath(), VeskDiracGainAndDelayBackupPath(),
                               VeskTalvorCastActivePath()}) {
        EXPECT_EQ(write(path, VeskValue::ofBool(true)), "") << path.toString().toStdString();
        EXPECT_TRUE(valueAt(path).bool_());
    }
}

TEST_F(DiracTest, RegistersWithThePowerManager) {
    startPlatform();
    constructWorker();
    EXPECT_TRUE(eventually([] {
        const platform::PowerManagerModules modules(
            CMRoot()->getValue(platform::powerManagerModulesPath()));
        return modules.names() == QStringList{VeskDiracName()};
    }));
}

TEST_F(DiracTest, FormsItsUuidFromProductAndMac) {
    startDevice();
    // The version-5 UUID of "XYAABBCCDDEEFF" in the namespace of the device.
    constexpr const char* kUuid = "dcede59c-9f60-5d36-aee4-de0c0827ee13";
    EXPECT_EQ(ask(&Stub::GetDeviceInfo, Void()).uuid(), kUuid);
    EXPECT_TRUE(logged(std::string("TRACE DIrac UUID = ") + kUuid));
}

TEST_F(DiracTest, PublishesTheStoredSlotsWhenAllValuesAreKnown) {
    startPlatform();
    write(VeskDiracSlotsSettingsPath(), settingsOf(2, {slotRecord(2, QStringLiteral("Sofa"), 5)}));
    constructWorker();
    settle();
    EXPECT_THAT(slotIndices(runtimeSlots()), ElementsAre(2));
    EXPECT_EQ(runtimeSlots().activeSlot(), 2);
    EXPECT_THAT(menuRows(), ElementsAre("off = -1", "Filter: Sofa = 2"));
}

TEST_F(DiracTest, ReloadsTheFilterOnDemand) {
    startDevice();
    constexpr const char* kHandler =
        "DEBUG Enter void Dirac::on_slotsSettings_changes(const VeskValue&): Slots settings "
        "changed";
    const std::size_t before = countLogged(kHandler);
    EXPECT_EQ(activateNode(VeskDiracForceReloadFilterPath()), QVariant(true));
    EXPECT_TRUE(logged("INFO Forcing reload active filter"));
    EXPECT_EQ(countLogged(kHandler), before + 1);
}

TEST_F(DiracTest, TakesSegmentAndServerWithIt) {
    startDevice();
    EXPECT_TRUE(segmentExists());
    stopDevice();
    EXPECT_FALSE(segmentExists());
    EXPECT_FALSE(logged("INFO Stop PRGC Dirac server"));
    CalibrationClient client;
    dio::endpoint::DeviceInfo reply;
    EXPECT_FALSE(client.deviceInfo(&reply).ok());
}

TEST_F(DiracTest, EndsWhileAClientIsConnected) {
    startDevice();
    CalibrationClient client;
    grpc::ClientContext context;
    const auto stream = client.stub().Notifications(&context);
    dio::endpoint::NotificationInfo message;
    ASSERT_TRUE(stream->Read(&message));
    stopDevice();
    while (stream->Read(&message)) {
    }
    EXPECT_FALSE(stream->Finish().ok());
}

TEST_F(DiracTest, EndsBeforeItsValuesAreKnown) {
    startPlatform();
    constructWorker();
    stopDevice();
    EXPECT_FALSE(segmentExists());
}
