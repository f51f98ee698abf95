#include "sdk/cm/VeskPaths.h"
#include "support/DeviceFixture.h"

#include <QDateTime>
#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <memory>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const VeskDiracSlot kSlot = slotRecord(3, QStringLiteral("Sofa"), 77);

/// A slot record whose channel filter has `taps`, for one channel of the 48 kHz variant.
VeskDiracSlot slotWithTaps(int slotIdx, const QString& name, qint64 creationTime, int tapSize) {
    QVariantList taps;
    for (int i = 0; i < tapSize; ++i)
        taps.append(0.25 + i);
    VeskDiracFiirParams fiir;
    fiir.setEnabled(true);
    fiir.setTaps(taps);
    fiir.setTapSize(tapSize);
    VeskDiracChannelParams channel;
    channel.setFiir(fiir);
    VeskDiracSlot slot = slotRecord(slotIdx, name, creationTime);
    const QVariantList channels{QVariant(channel)};
    slot.setParams({QVariant(channels)});
    return slot;
}

class DiracFiltersTest : public DeviceFixture {
protected:
    /// The device runs with these slots, the first of them active, filtering on.
    void startWith(const QList<VeskDiracSlot>& stored) {
        startPlatform();
        storeActive(stored);
        constructWorker();
        settle();
    }

    void storeActive(const QList<VeskDiracSlot>& stored) {
        const int active = stored.isEmpty() ? -1 : stored.first().slotIdx();
        VeskDiracSlotsList list = settingsOf(active, stored).diracSlotsList();
        list.setFilteringEnabled(true);
        write(VeskDiracSlotsSettingsPath(), VeskValue::of(list));
    }

    void changeRuntime(const VeskDiracSlotsList& list) {
        write(VeskDiracSlotsRuntimePath(), VeskValue::of(list));
        settle();
    }

    void writeCacheFile(const std::string& name, std::size_t size, char fill) {
        const auto cache = directory() / "data-rw" / "dirac";
        std::filesystem::create_directories(cache);
        std::ofstream(cache / name) << std::string(size, fill);
    }

    /// The default image with the speakers and a time stamp, byte by byte.
    void expectBypass(const DiracConfiguration& image) {
        const auto expected = std::make_unique<DiracConfiguration>();
        expected->timeStamp = image.timeStamp;
        for (const auto& speaker : description.speakers)
            expected->speakers.at(expected->speakerCount++) = {speaker.type, speaker.groupId};
        EXPECT_EQ(image.bypass, 1);
        EXPECT_EQ(std::memcmp(&image, expected.get(), sizeof image), 0);
    }
};

}  // namespace

// ---- Speakers ----

TEST_F(DiracFiltersTest, PublishesTheSpeakersWithAFreshTimeStamp) {
    description.speakers = {{QStringLiteral("Left"), 1, 7}, {QStringLiteral("Bass"), 4, 8}};
    const qint64 before = QDateTime::currentMSecsSinceEpoch();
    startWith({kSlot});
    const DiracConfiguration published = image();
    EXPECT_EQ(published.speakerCount, 2U);
    EXPECT_EQ(published.speakers[0].type, 1U);
    EXPECT_EQ(published.speakers[0].groupId, 7U);
    EXPECT_EQ(published.speakers[1].type, 4U);
    EXPECT_EQ(published.speakers[1].groupId, 8U);
    EXPECT_EQ(published.speakers[2].type, 0U);
    EXPECT_GE(published.timeStamp, before);
    EXPECT_LE(published.timeStamp, QDateTime::currentMSecsSinceEpoch());
}

TEST_F(DiracFiltersTest, CountsMoreSpeakersThanItHasPlacesFor) {
    description.speakers.clear();
    for (unsigned i = 0; i < 12; ++i)
        description.speakers.append({QStringLiteral("Speaker"), 1, i});
    startPlatform();
    constructWorker();
    settle();
    EXPECT_EQ(image().speakerCount, 12U);
    EXPECT_EQ(image().speakers[9].groupId, 9U);
}

// ---- Precaching ----

TEST_F(DiracFiltersTest, CachesFourRatesOfEachStoredSlot) {
    startWith({kSlot});
    EXPECT_THAT(cacheFiles(), ElementsAre("3_176400_77_data", "3_192000_77_data", "3_88200_77_data",
                                          "3_96000_77_data"));
    EXPECT_TRUE(logged("DEBUG Precaching slots of count: 1"));
    EXPECT_TRUE(logged("DEBUG Starting precaching for slot Sofa slot id 3"));
    EXPECT_TRUE(logged("DEBUG Filter data not cached, calculate data for Sofa rate: 88200"));
    EXPECT_TRUE(log().contains("DEBUG Precached data for Sofa rate: 192000 size "));
    EXPECT_TRUE(logged("DEBUG Precached all filters"));
}

TEST_F(DiracFiltersTest, ServesAnUnchangedSlotFromItsFiles) {
    startWith({kSlot});
    const auto calculated = [this] { return log().contains("calculate data for Sofa"); };
    ASSERT_TRUE(calculated());
    stopDevice();
    const LogCapture second("Dirac");
    startWith({kSlot});
    EXPECT_FALSE(second.contains("calculate data for Sofa"));
    EXPECT_TRUE(second.contains("DEBUG Precached data for Sofa rate: 88200 size "));
}

TEST_F(DiracFiltersTest, ReplacesTheFilesOfAReplacedSlot) {
    startWith({kSlot});
    VeskDiracSlot replaced = kSlot;
    replaced.setCreationTime(78);
    storeActive({replaced});
    settle();
    EXPECT_TRUE(logged("DEBUG Creation time for filter Sofa differs from 78 to 77"));
    EXPECT_TRUE(logged("DEBUG Erasing and precaching filters because change was detected"));
    EXPECT_THAT(cacheFiles(), ElementsAre("3_176400_78_data", "3_192000_78_data", "3_88200_78_data",
                                          "3_96000_78_data"));
}

TEST_F(DiracFiltersTest, RemovesAllFilesWithoutSlots) {
    writeCacheFile("1_88200_5_data", 3, 'x');
    writeCacheFile("tmp_1_88200_5_data", 3, 'x');
    startWith({});
    EXPECT_THAT(cacheFiles(), IsEmpty());
    EXPECT_TRUE(logged("DEBUG Precaching slots of count: 0"));
}

TEST_F(DiracFiltersTest, ForgetsAllDataWithoutSlots) {
    startWith({kSlot});
    storeActive({});
    settle();
    callSlot("on_slotsRuntime_changed", settingsOf(3, {slotRecord(3, QStringLiteral("Sofa"), 78)}));
    EXPECT_THAT(cacheFiles(), IsEmpty());
    ASSERT_EQ(countLogged("DEBUG index is not precached 3"), 0U);
    VeskDiracSlotsList list = settingsOf(3, {kSlot}).diracSlotsList();
    list.setFilteringEnabled(true);
    callSlot("on_slotsRuntime_changed", VeskValue::of(list));
    EXPECT_EQ(countLogged("DEBUG index is not precached 3"), 1U);
    for (const unsigned rate : kDiracSubSamplerRates)
        EXPECT_TRUE(
            logged("WARN Missing precached data for filter Sofa rate " + std::to_string(rate)));
}

TEST_F(DiracFiltersTest, PrecachesASlotThatIsNew) {
    startWith({kSlot});
    storeActive({kSlot, slotRecord(1, QStringLiteral("Table"), 5)});
    settle();
    EXPECT_TRUE(logged("DEBUG index is not precached 1"));
    EXPECT_EQ(cacheFiles().size(), 8U);
}

TEST_F(DiracFiltersTest, PrecachesNothingWhenNothingChanged) {
    startWith({kSlot, slotRecord(1, QStringLiteral("Table"), 5)});
    const auto precached = [this] { return countLogged("DEBUG Precaching slots of count: 2"); };
    const std::size_t before = precached();
    activate(1);
    settle();
    EXPECT_EQ(settings().activeSlot(), 1);
    EXPECT_EQ(precached(), before);
}

TEST_F(DiracFiltersTest, PrecachesWhatIsStoredWhenTheReportIsBehind) {
    startWith({kSlot});
    inWorkerThread([this] {
        const VeskValue older = settingsOf(3, {slotRecord(3, QStringLiteral("Sofa"), 90)});
        storeActive({slotRecord(3, QStringLiteral("Sofa"), 91)});
        QMetaObject::invokeMethod(&worker(), "on_slotsRuntime_changed", Qt::DirectConnection,
                                  Q_ARG(VeskValue, older));
    });
    EXPECT_THAT(cacheFiles(), testing::Contains("3_88200_91_data"));
    settle();
    EXPECT_EQ(image().subSamplerSizes[0] > 0, true);
}

// ---- Publication ----

TEST_F(DiracFiltersTest, PublishesTheActiveSlotWithItsPrecachedData) {
    startWith({slotWithTaps(3, QStringLiteral("Sofa"), 77, 2)});
    const DiracConfiguration published = image();
    EXPECT_EQ(published.bypass, 0);
    EXPECT_EQ(published.groups[0][0].filterEnabled, 1U);
    EXPECT_EQ(published.groups[0][0].tapCount, 2U);
    EXPECT_EQ(published.groups[0][0].taps[0], 0.25F);
    EXPECT_EQ(published.groups[0][0].taps[1], 1.25F);
    EXPECT_TRUE(logged("INFO Populating filter with name Sofa id: 3"));
    EXPECT_TRUE(logged("DEBUG Filtering enabled: 1 active filter: 3"));
    for (std::size_t rate = 0; rate < 4; ++rate) {
        EXPECT_GT(published.subSamplerSizes.at(rate), 0U);
        const auto file = directory() / "data-rw" / "dirac" /
                          ("3_" + std::to_string(kDiracSubSamplerRates.at(rate)) + "_77_data");
        EXPECT_EQ(std::filesystem::file_size(file), published.subSamplerSizes.at(rate));
    }
}

TEST_F(DiracFiltersTest, PublishesTheBytesOfTheCacheFile) {
    for (const unsigned rate : kDiracSubSamplerRates)
        writeCacheFile("3_" + std::to_string(rate) + "_77_data", 3, 'x');
    startWith({kSlot});
    const DiracConfiguration published = image();
    EXPECT_THAT(published.subSamplerSizes, ElementsAre(3, 3, 3, 3));
    EXPECT_EQ(std::string(published.subSamplerData[2].data(), 4), std::string("xxx\0", 4));
    EXPECT_TRUE(logged("DEBUG Filled precached into shm, name: Sofa rate 176400 size 3"));
}

TEST_F(DiracFiltersTest, BypassesWhileFilteringIsOff) {
    startWith({slotWithTaps(3, QStringLiteral("Sofa"), 77, 2)});
    VeskDiracSlotsList list = runtimeSlots();
    list.setFilteringEnabled(false);
    changeRuntime(list);
    expectBypass(image());
}

TEST_F(DiracFiltersTest, BypassesWithoutActiveSlot) {
    startWith({slotWithTaps(3, QStringLiteral("Sofa"), 77, 2)});
    VeskDiracSlotsList list = runtimeSlots();
    list.setActiveSlot(-1);
    changeRuntime(list);
    expectBypass(image());
}

TEST_F(DiracFiltersTest, BypassesWithoutActiveSlotKey) {
    startWith({slotWithTaps(0, QStringLiteral("Sofa"), 77, 2)});
    VeskDiracSlotsList list = runtimeSlots();
    list.remove(VeskDiracSlotsList::ActiveSlot());
    changeRuntime(list);
    expectBypass(image());
    EXPECT_TRUE(logged("DEBUG Filtering enabled: 1 active filter: -1"));
}

TEST_F(DiracFiltersTest, PassesTheSignalWhenTheActiveSlotIsNotThere) {
    startWith({kSlot});
    VeskDiracSlotsList list = runtimeSlots();
    list.setActiveSlot(2);
    changeRuntime(list);
    EXPECT_EQ(image().bypass, 0);
    EXPECT_EQ(image().groups[0][0].filterEnabled, 0U);
}

TEST_F(DiracFiltersTest, KeepsTheImageWhileTheConfigurationSaysSo) {
    startWith({kSlot});
    VeskDiracConfig config = valueAt(VeskDiracConfigPath()).diracConfig();
    config.setDisableShmUpdate(true);
    write(VeskDiracConfigPath(), VeskValue::of(config));
    settle();
    const std::int64_t before = image().timeStamp;
    const std::size_t precached = countLogged("DEBUG Precached all filters");
    storeActive({slotWithTaps(1, QStringLiteral("New"), 78, 2)});
    settle();
    EXPECT_TRUE(logged("WARN Slot change blocked by config"));
    EXPECT_EQ(image().timeStamp, before);
    EXPECT_EQ(countLogged("DEBUG Precached all filters"), precached);
}

TEST_F(DiracFiltersTest, KeepsTheImageWhenTheValueCarriesThatConfiguration) {
    startWith({kSlot});
    const std::int64_t before = image().timeStamp;
    VeskDiracConfig config;
    config.setDisableShmUpdate(true);
    VeskValue value = VeskValue::of(runtimeSlots());
    value.setDiracConfig(config);
    callSlot("on_slotsRuntime_changed", value);
    EXPECT_TRUE(logged("WARN Slot change blocked by config"));
    EXPECT_EQ(image().timeStamp, before);
}

TEST_F(DiracFiltersTest, BypassesASlotThatIsLargerThanTheImage) {
    startWith({slotWithTaps(3, QStringLiteral("Huge"), 77, 1025)});
    expectBypass(image());
    EXPECT_EQ(image().speakerCount, 2U);
    EXPECT_TRUE(log().contains("ERROR Filter slot 3 does not fit the DSP's image: "));
    EXPECT_TRUE(log().contains("1025 taps"));
    EXPECT_THAT(cacheFiles(), IsEmpty());
}

TEST_F(DiracFiltersTest, PublishesAnotherSlotBesideOneThatIsTooLarge) {
    startWith({slotWithTaps(1, QStringLiteral("Fits"), 76, 2),
               slotWithTaps(3, QStringLiteral("Huge"), 77, 1025)});
    EXPECT_EQ(image().bypass, 0);
    EXPECT_EQ(segmentTaps(0, 2), (std::vector<float>{0.25F, 1.25F}));
}

// ---- One rate's data ----

namespace {

class PopulateRateTest : public testing::Test {
protected:
    void populate(int size) { Dirac::populateRate(*image_, kSlot, 1, QVector<char>(size, 'x')); }

    const std::unique_ptr<DiracConfiguration> image_{std::make_unique<DiracConfiguration>()};
    const LogCapture log_{"Dirac"};
};

}  // namespace

TEST_F(PopulateRateTest, CopiesDataThatFillTheBlock) {
    populate(4096);
    EXPECT_EQ(image_->subSamplerSizes[1], 4096U);
    EXPECT_TRUE(std::all_of(image_->subSamplerData[1].begin(), image_->subSamplerData[1].end(),
                            [](char byte) { return byte == 'x'; }));
    EXPECT_EQ(image_->subSamplerData[2][0], '\0');
}

TEST_F(PopulateRateTest, RefusesDataThatAreLargerThanTheBlock) {
    populate(4097);
    EXPECT_EQ(image_->subSamplerSizes[1], 0U);
    EXPECT_EQ(image_->subSamplerData[1][0], '\0');
    EXPECT_TRUE(
        log_.contains("WARN Precached data larger than static array Sofa rate 96000 size 4097"));
}

TEST_F(PopulateRateTest, WarnsOfMissingData) {
    populate(0);
    EXPECT_EQ(image_->subSamplerSizes[1], 0U);
    EXPECT_TRUE(log_.contains("WARN Missing precached data for filter Sofa rate 96000"));
}
