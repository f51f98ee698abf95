#include "modules/dirac/ServerInfo.h"
#include "platform/Platform.h"

#include <gmock/gmock.h>

#include <memory>

using testing::ElementsAre;

namespace {

/// Builds descriptions on a platform with the given volume map.
class ServerInfoTest : public testing::Test {
protected:
    void startPlatform(const QList<double>& volumeMap) {
        platform::DeviceDescription description;
        description.volumeMap = volumeMap;
        platform_ = std::make_unique<platform::Platform>(description);
    }

    static DeviceInfo device(int sampleRate) {
        DeviceInfo info;
        info.stimuliSampleRate = sampleRate;
        return info;
    }

    static std::unique_ptr<ServerInfo> describe(const DeviceInfo& info) {
        return std::make_unique<ServerInfo>(info);
    }

    void SetUp() override { startPlatform({-60.0, -30.0, 0.0}); }

    std::unique_ptr<platform::Platform> platform_;
};

using ServerInfoDeathTest = ServerInfoTest;

}  // namespace

TEST_F(ServerInfoTest, CopiesTheDevice) {
    DeviceInfo info;
    info.manufacturer = "Maker";
    info.deviceName = "Kitchen";
    info.modelName = "Model";
    info.uuid = "id";
    info.speakers = {{"Left", 1, 2}, {"Bass", 4, 3}};
    info.mics = {"One", "Two"};
    info.numberOfSlots = 5;
    info.extraInfo = "extra";
    info.stimuliSampleRate = 48000;
    info.stimuliChannels = 8;
    info.ipcKey = 77;

    const auto description = describe(info);

    EXPECT_EQ(description->manufacturer, "Maker");
    EXPECT_EQ(description->deviceName, "Kitchen");
    EXPECT_EQ(description->modelName, "Model");
    EXPECT_EQ(description->uuid, "id");
    ASSERT_EQ(description->speakers.size(), 2U);
    EXPECT_EQ(description->speakers[1].name, "Bass");
    EXPECT_EQ(description->speakers[1].type, 4U);
    EXPECT_EQ(description->speakers[1].groupId, 3U);
    EXPECT_THAT(description->mics, ElementsAre("One", "Two"));
    EXPECT_EQ(description->numberOfSlots, 5U);
    EXPECT_EQ(description->extraInfo, "extra");
    EXPECT_EQ(description->stimuliSampleRate, 48000);
    EXPECT_EQ(description->stimuliChannels, 8U);
    EXPECT_EQ(description->ipcKey, 77);
}

TEST_F(ServerInfoTest, DescribesTheLogSweepsOf48kHz) {
    const auto description = describe(device(48000));
    ASSERT_EQ(description->logSweepInfos.size(), 2U);
    const auto& full = description->logSweepInfos[0];
    EXPECT_EQ(full.variant(), 0U);
    EXPECT_EQ(full.sample_rate(), 48000.0F);
    EXPECT_EQ(full.start_frequency(), 10.0F);
    EXPECT_EQ(full.end_frequency(), 24000.0F);
    EXPECT_EQ(full.length(), 240000U);
    EXPECT_EQ(full.silence(), 24000U);
    EXPECT_EQ(full.fade_out_tail(), 300.0);
    EXPECT_EQ(full.num_periods(), 1U);
    const auto& bass = description->logSweepInfos[1];
    EXPECT_EQ(bass.variant(), 1U);
    EXPECT_EQ(bass.sample_rate(), 48000.0F);
    EXPECT_EQ(bass.start_frequency(), 10.0F);
    EXPECT_EQ(bass.end_frequency(), 300.0F);
    EXPECT_EQ(bass.length(), 24000U);
    EXPECT_EQ(bass.silence(), 0U);
    EXPECT_EQ(bass.fade_out_tail(), 0.0);
    EXPECT_EQ(bass.num_periods(), 1U);
}

TEST_F(ServerInfoTest, DescribesTheFullSweepOf44100Hz) {
    const auto sweep = describe(device(44100))->logSweepInfos.at(0);
    EXPECT_EQ(sweep.end_frequency(), 22050.0F);
    EXPECT_EQ(sweep.length(), 220500U);
    EXPECT_EQ(sweep.silence(), 22050U);
}

TEST_F(ServerInfoTest, HalvesAnOddSampleRateToAnInteger) {
    const auto description = describe(device(44101));
    EXPECT_EQ(description->logSweepInfos.at(0).end_frequency(), 22050.0F);
    EXPECT_EQ(description->logSweepInfos.at(0).silence(), 22050U);
    EXPECT_EQ(description->logSweepInfos.at(1).length(), 22050U);
}

TEST_F(ServerInfoTest, TakesASampleRateOfZero) {
    const auto sweep = describe(device(0))->logSweepInfos.at(0);
    EXPECT_EQ(sweep.length(), 0U);
    EXPECT_EQ(sweep.end_frequency(), 0.0F);
}

TEST_F(ServerInfoTest, HasOnePinkNoise) {
    const auto description = describe(device(44100));
    ASSERT_EQ(description->pinkNoiseInfos.size(), 1U);
    EXPECT_EQ(description->pinkNoiseInfos[0].variant(), 0U);
    EXPECT_EQ(description->pinkNoiseInfos[0].sample_rate(), 44100.0F);
    EXPECT_EQ(description->pinkNoiseInfos[0].length(), 0U);
}

TEST_F(ServerInfoTest, HasFilterVariantsFor48And44kHzWhateverTheStimuli) {
    const auto description = describe(device(96000));
    ASSERT_EQ(description->fiirInfos.size(), 2U);
    ASSERT_EQ(description->iirInfos.size(), 2U);
    ASSERT_EQ(description->delayGainInfos.size(), 2U);
    for (std::size_t variant = 0; variant < 2; ++variant) {
        const float sampleRate = variant == 0 ? 48000.0F : 44100.0F;
        const auto& fiir = description->fiirInfos[variant];
        EXPECT_EQ(fiir.variant(), variant);
        EXPECT_EQ(fiir.sample_rate(), sampleRate);
        EXPECT_EQ(fiir.max_taps(), 1000U);
        EXPECT_EQ(fiir.max_biquads(), 30U);
        const auto& iir = description->iirInfos[variant];
        EXPECT_EQ(iir.variant(), variant);
        EXPECT_EQ(iir.sample_rate(), sampleRate);
        EXPECT_EQ(iir.max_biquads(), 6U);
        const auto& delayGain = description->delayGainInfos[variant];
        EXPECT_EQ(delayGain.variant(), variant);
        EXPECT_EQ(delayGain.sample_rate(), sampleRate);
        EXPECT_EQ(delayGain.max_delay(), 150U);
        EXPECT_EQ(delayGain.max_gain(), 10.0F);
    }
}

TEST_F(ServerInfoTest, StreamsBlocksOf512SamplesAt48kHz) {
    const auto streaming = describe(device(44100))->streamingInfo;
    EXPECT_EQ(streaming.sample_rate(), 48000.0F);
    EXPECT_EQ(streaming.block_length(), 512U);
    EXPECT_TRUE(streaming.supports_recording());
    EXPECT_TRUE(streaming.supports_streaming());
}

TEST_F(ServerInfoTest, HasAGainRangeForStimuliSpeakersAndMicrophones) {
    const auto description = describe(device(48000));
    const auto expectRange = [](const dio::endpoint::GainInfo& range, double minimum) {
        EXPECT_EQ(range.minimum(), minimum);
        EXPECT_EQ(range.step(), 0.5);
        EXPECT_EQ(range.maximum(), 0.0);
        EXPECT_EQ(range.settling_time(), 0U);
    };
    expectRange(description->stimuliGainInfo, -12.0);
    expectRange(description->speakerGainInfo, -60.0);
    expectRange(description->micGainInfo, -20.0);
}

TEST_F(ServerInfoTest, StartsWithFullMicrophoneGainAndLevel) {
    const auto description = describe(device(48000));
    EXPECT_EQ(description->micGain, 1.0F);
    EXPECT_EQ(description->levelFactor, 1.0F);
}

TEST_F(ServerInfoDeathTest, AnEmptyVolumeMapEndsTheProcess) {
    platform_.reset();
    startPlatform({});
    EXPECT_DEATH(describe(device(48000)), "!isEmpty\\(\\)");
}
