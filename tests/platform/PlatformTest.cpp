#include "platform/Platform.h"
#include "platform/PlatformPaths.h"
#include "platform/cm/Tree.h"
#include "platform/player/PlayerStatistics.h"
#include "sdk/cm/CMAbstractWorker.h"
#include "sdk/cm/CMInitWatcher.h"
#include "sdk/cm/VeskPaths.h"
#include "sdk/player/PlayLogicInterface.h"
#include "sdk/records/VeskPlayerRecords.h"
#include "sdk/records/VeskPowerManagerRecords.h"

#include <QMetaType>
#include <QTemporaryDir>
#include <gmock/gmock.h>

#include <stdexcept>

using platform::DeviceDescription;
using platform::Platform;
using platform::Speaker;
using testing::IsEmpty;

namespace {

DeviceDescription stereo() {
    DeviceDescription description;
    description.manufacturer = QStringLiteral("Maker");
    description.deviceName = QStringLiteral("Living room");
    description.productShortName = QStringLiteral("Xy");
    description.uuidNamespace = QStringLiteral("6ba7b810-9dad-11d1-80b4-00c04fd430c8");
    description.ethernetMac = QStringLiteral("aa:bb:cc:dd:ee:ff");
    description.speakers = {Speaker{QStringLiteral("Left"), 1, 0},
                            Speaker{QStringLiteral("Sub"), 4, 2}};
    description.microphones = QStringList{QStringLiteral("USB")};
    description.numberOfSlots = 5;
    description.ipcKey = 77;
    description.micDeviceName = QStringLiteral("hw:1");
    description.micRecordSampleRate = 44100;
    description.volumeMap = {-60.0, -30.5, 0.0};
    description.listenAddress = QStringLiteral("127.0.0.1");
    return description;
}

VeskValue read(const CMPath& path) {
    return VeskValue(CMRoot()->getValue(path));
}

VeskDiracConfig configOf(const DeviceDescription& description) {
    const Platform platform(description);
    return read(VeskDiracConfigPath()).diracConfig();
}

TEST(PlatformTest, IdentityIsThatOfTheDescription) {
    const Platform platform(stereo());
    EXPECT_EQ(read(VeskSystemManufacturerRoonPath()).string(), QStringLiteral("Maker"));
    EXPECT_EQ(read(VeskDeviceNamePath()).string(), QStringLiteral("Living room"));
    EXPECT_EQ(read(VeskDiracProductShortNamePath()).string(), QStringLiteral("Xy"));
    EXPECT_EQ(read(VeskDiracUuidNamespacePath()).string(),
              QStringLiteral("6ba7b810-9dad-11d1-80b4-00c04fd430c8"));
    EXPECT_EQ(read(VeskNetworkStateEthernetMAC()).string(), QStringLiteral("aa:bb:cc:dd:ee:ff"));
    EXPECT_EQ(read(platform::endpointListenAddressPath()).string(), QStringLiteral("127.0.0.1"));
}

TEST(PlatformTest, DiracConfigurationIsThatOfTheDescription) {
    const VeskDiracConfig config = configOf(stereo());
    ASSERT_EQ(config.speakers().size(), 2);
    const VeskDiracSpeakerInfo sub(config.speakers()[1]);
    EXPECT_EQ(sub.name(), QStringLiteral("Sub"));
    EXPECT_EQ(sub.type(), 4U);
    EXPECT_EQ(sub.groupId(), 2U);
    ASSERT_EQ(config.mics().size(), 1);
    EXPECT_EQ(VeskDiracMicsInfo(config.mics()[0]).name(), QStringLiteral("USB"));
    EXPECT_EQ(config.numberOfSlots(), 5U);
    EXPECT_EQ(config.stimuliSampleRate(), 48000);
    EXPECT_EQ(config.ipcKey(), 77);
    EXPECT_EQ(config.micDeviceName(), QStringLiteral("hw:1"));
    EXPECT_EQ(config.micRecordSampleRate(), 44100);
    EXPECT_FALSE(config.disableShmUpdate());
}

TEST(PlatformTest, StimuliChannelsAreThereOnlyWhenDescribed) {
    DeviceDescription description = stereo();
    EXPECT_FALSE(configOf(description).contains(VeskDiracConfig::StimuliChannels()));
    description.stimuliChannels = 4;
    EXPECT_EQ(configOf(description).stimuliChannels(), 4U);
}

TEST(PlatformTest, SlotsStartEmptyAndOff) {
    const Platform platform(stereo());
    const VeskDiracSlotsList list = read(VeskDiracSlotsSettingsPath()).diracSlotsList();
    EXPECT_TRUE(list.contains(VeskDiracSlotsList::ActiveSlot()));
    EXPECT_EQ(list.activeSlot(), -1);
    EXPECT_THAT(list.slots_(), IsEmpty());
    EXPECT_FALSE(list.filteringEnabled());
    EXPECT_FALSE(list.delayGainEnabled());
}

TEST(PlatformTest, StatusValuesStartAtZero) {
    const Platform platform(stereo());
    EXPECT_EQ(read(VeskTalvorCorbelDiracSlotsUpdatePath()), VeskValue::ofI32(0));
    for (const CMPath& path :
         {VeskTalvorCorbelDiracStimuliGainDB0(), VeskTalvorCorbelDiracStimuliGainDB1(),
          VeskTalvorCorbelDiracStimuliGainDB2(), VeskTalvorCorbelDiracStimuliGainDB3()})
        EXPECT_EQ(read(path), VeskValue::ofI32(0));
    for (const CMPath& path :
         {VeskTalvorCorbelFilteringEnabled(), VeskTalvorCorbelDiracCalibrationStatusPath(),
          VeskTalvorCorbelDiracClientStatusPath()})
        EXPECT_EQ(read(path), VeskValue::ofBool(false));
    EXPECT_EQ(read(platform::attenuationPath()), VeskValue::ofDouble(0.0));
}

TEST(PlatformTest, PlayerStartsStopped) {
    const Platform platform(stereo());
    const VeskPlayLogicData data(read(platform::playerDataPath()).hash());
    EXPECT_TRUE(data.contains(VeskPlayLogicData::State()));
    EXPECT_EQ(data.state(), VeskPlayLogicState::Stopped);
}

TEST(PlatformTest, ThePlayerHasPlayedNothingAtFirst) {
    const Platform platform(stereo());
    const platform::PlayerStatistics statistics(read(platform::playerStatisticsPath()).hash());
    EXPECT_TRUE(statistics.contains(platform::PlayerStatistics::Frames()));
    EXPECT_EQ(statistics.frames(), 0);
    EXPECT_EQ(statistics.underruns(), 0);
}

TEST(PlatformTest, PlayerIsThatOfTheProcess) {
    const Platform platform(stereo());
    EXPECT_EQ(PlayLogicInterface::playerInstance()->dataPath(), platform::playerDataPath());
}

TEST(PlatformTest, PowerManagerTakesRegistrations) {
    const Platform platform(stereo());
    VeskPowerManagerModuleRegister registration;
    registration.setModuleName(QStringLiteral("Test"));
    const auto reply = CMReply<QVariant>::create();
    CMRoot()->invoke(VeskPowerManagerModuleRegisterPath(), registration, reply);
    ASSERT_TRUE(reply.waitForFinished(20000));
    EXPECT_FALSE(reply.error().isError());
}

TEST(PlatformTest, NothingThatTheModuleNeedsOfThePlatformLacksAValue) {
    Platform platform(stereo());
    CMInitWatcher watcher(nullptr, QStringLiteral("Test"));
    for (const CMPath& path : {VeskDiracConfigPath(), VeskDiracSlotsSettingsPath(),
                               VeskNetworkStateEthernetMAC(), platform::playerDataPath()})
        watcher.newCMValueItem(path, {});
    EXPECT_THAT(platform.tree().watchedWithoutValue(), IsEmpty());
}

TEST(PlatformTest, VolumeMapIsAListOfDoubles) {
    const Platform platform(stereo());
    EXPECT_EQ(read(VeskPlayerVolumeMapPath()).doubleList(), (QVariantList{-60.0, -30.5, 0.0}));
}

TEST(PlatformTest, EmptyVolumeMapIsAccepted) {
    DeviceDescription description = stereo();
    description.volumeMap.clear();
    const Platform platform(description);
    EXPECT_TRUE(CMRoot()->getValue(VeskPlayerVolumeMapPath()).isValid());
    EXPECT_THAT(read(VeskPlayerVolumeMapPath()).doubleList(), IsEmpty());
}

TEST(PlatformTest, ValueIsKnownToTheMetaTypeSystem) {
    const Platform platform(stereo());
    EXPECT_EQ(QMetaType::type("VeskValue"), qMetaTypeId<VeskValue>());
}

TEST(PlatformTest, SecondPlatformIsRefused) {
    const Platform platform(stereo());
    EXPECT_THROW(Platform second(stereo()), std::logic_error);
}

class PlatformStateTest : public testing::Test {
protected:
    PlatformStateTest() { description_.stateDirectory = directory_.filePath("state"); }

    template <typename Action>
    void runDevice(const Action& action) {
        const Platform platform(description_);
        action();
    }

    static void write(const CMPath& path, const VeskValue& value) {
        CMRoot()->setValue(path, value, {});
    }

    static VeskValue slotsWithActive(int slot) {
        VeskDiracSlotsList list;
        list.setActiveSlot(slot);
        return VeskValue::of(list);
    }

    const QTemporaryDir directory_;
    DeviceDescription description_{stereo()};
};

TEST_F(PlatformStateTest, SlotsSettingsAndAttenuationSurviveRestart) {
    runDevice([] {
        write(VeskDiracSlotsSettingsPath(), slotsWithActive(3));
        write(platform::attenuationPath(), VeskValue::ofDouble(-12.5));
    });
    runDevice([] {
        EXPECT_EQ(read(VeskDiracSlotsSettingsPath()), slotsWithActive(3));
        EXPECT_EQ(read(platform::attenuationPath()), VeskValue::ofDouble(-12.5));
    });
}

TEST_F(PlatformStateTest, StoredValueSurvivesRestartThatDoesNotTouchIt) {
    runDevice([] { write(platform::attenuationPath(), VeskValue::ofDouble(-3.0)); });
    runDevice([] {});
    runDevice([] { EXPECT_EQ(read(platform::attenuationPath()), VeskValue::ofDouble(-3.0)); });
}

TEST_F(PlatformStateTest, ChangedDescriptionTakesEffect) {
    runDevice([] {
        VeskDiracConfig config;
        config.setIpcKey(1);
        write(VeskDiracConfigPath(), VeskValue::of(config));
        write(VeskDeviceNamePath(), VeskValue::ofString(QStringLiteral("Renamed")));
    });
    description_.ipcKey = 99;
    runDevice([] {
        EXPECT_EQ(read(VeskDiracConfigPath()).diracConfig().ipcKey(), 99);
        EXPECT_EQ(read(VeskDeviceNamePath()).string(), QStringLiteral("Living room"));
    });
}

TEST_F(PlatformStateTest, OnlySlotsSettingsAndAttenuationArePersistent) {
    Platform platform(description_);
    for (const auto& info : platform.tree().list())
        EXPECT_EQ(info.persistent, info.path == VeskDiracSlotsSettingsPath() ||
                                       info.path == platform::attenuationPath())
            << info.path.toString().toStdString();
}

TEST_F(PlatformStateTest, WithoutStateDirectoryNothingIsKept) {
    description_.stateDirectory.clear();
    runDevice([] { write(platform::attenuationPath(), VeskValue::ofDouble(-3.0)); });
    runDevice([] { EXPECT_EQ(read(platform::attenuationPath()), VeskValue::ofDouble(0.0)); });
}

TEST_F(PlatformStateTest, UnusableStateDirectoryIsNamedAndLeavesNoPlatform) {
    description_.stateDirectory = QStringLiteral("/proc/none");
    EXPECT_THAT([this] { const Platform platform(description_); },
                testing::ThrowsMessage<std::runtime_error>(testing::HasSubstr("/proc/none")));
    description_.stateDirectory.clear();
    runDevice([] { EXPECT_TRUE(CMRoot()->getValue(VeskDiracConfigPath()).isValid()); });
}

}  // namespace
