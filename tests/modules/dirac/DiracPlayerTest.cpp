#include "platform/PlatformPaths.h"
#include "sdk/cm/VeskPaths.h"
#include "sdk/player/PlayLogicInterface.h"
#include "support/DeviceFixture.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>

namespace {

const QString kOtherService = QStringLiteral("radio");

class DiracPlayerTest : public DeviceFixture {
protected:
    static VeskValue dataOf(const QString& service, VeskPlayLogicState::Enum state) {
        VeskMetaData metaData;
        metaData.setServiceID(service);
        VeskMediaData mediaData;
        mediaData.setMetaData(metaData);
        VeskRoles roles;
        roles.setMediaData(mediaData);
        VeskPlayLogicData data;
        data.setState(state);
        data.setMediaRoles(roles);
        return VeskValue(data.hash());
    }

    /// The player plays something of `service`, or stops.
    void play(const QString& service, VeskPlayLogicState::Enum state) {
        write(PlayLogicInterface::playerInstance()->dataPath(), dataOf(service, state));
        settle();
    }

    /// In the worker's thread: the player's data changed as if it had said so.
    void reportPlayerData(const VeskValue& newValue, const VeskValue& oldValue) {
        QMetaObject::invokeMethod(&worker(), "on_playerData_changed", Qt::DirectConnection,
                                  Q_ARG(VeskValue, newValue), Q_ARG(VeskValue, oldValue));
    }

    /// The states that the endpoint was told of.
    std::vector<std::string> reportedStates() {
        const std::string prefix = "DEBUG notifyPlayerStateChanged: ";
        std::vector<std::string> states;
        for (const std::string& line : log().lines())
            if (line.rfind(prefix, 0) == 0)
                states.push_back(line.substr(prefix.size()));
        return states;
    }

    static std::vector<std::string> textsOf(
        std::initializer_list<VeskPlayLogicState::Enum> states) {
        std::vector<std::string> texts;
        for (const auto state : states)
            texts.emplace_back(VeskPlayLogicState::toString(state));
        return texts;
    }

    static int stimuliGain(int channel) {
        switch (channel) {
            case 0:
                return valueAt(VeskTalvorCorbelDiracStimuliGainDB0()).i32_();
            case 1:
                return valueAt(VeskTalvorCorbelDiracStimuliGainDB1()).i32_();
            case 2:
                return valueAt(VeskTalvorCorbelDiracStimuliGainDB2()).i32_();
            default:
                return valueAt(VeskTalvorCorbelDiracStimuliGainDB3()).i32_();
        }
    }
};

}  // namespace

// ---- Stimulus gain ----

TEST_F(DiracPlayerTest, WritesTheStimulusGainOfAChannelInWholeDecibels) {
    startPlatform();
    constructWorker();
    worker().setSpeakerGain(2, -3.7);
    EXPECT_EQ(stimuliGain(2), -3);
    EXPECT_TRUE(logged("INFO set speaker gain index: 2 att: -3.7"));
}

TEST_F(DiracPlayerTest, KnowsFourChannels) {
    startPlatform();
    constructWorker();
    for (int channel = 0; channel < 4; ++channel)
        worker().setSpeakerGain(channel, -channel - 1.0);
    for (int channel = 0; channel < 4; ++channel)
        EXPECT_EQ(stimuliGain(channel), -channel - 1);
}

TEST_F(DiracPlayerTest, RefusesAnotherChannel) {
    startPlatform();
    constructWorker();
    for (int channel = 0; channel < 4; ++channel)
        worker().setSpeakerGain(channel, -9.0);
    worker().setSpeakerGain(4, 0.0);
    worker().setSpeakerGain(-1, 0.0);
    EXPECT_TRUE(logged("ERROR Unsuported channe number4"));
    EXPECT_TRUE(logged("ERROR Unsuported channe number-1"));
    for (int channel = 0; channel < 4; ++channel)
        EXPECT_EQ(stimuliGain(channel), -9);
}

TEST_F(DiracPlayerTest, SaturatesTheStimulusGain) {
    startPlatform();
    constructWorker();
    worker().setSpeakerGain(0, 1e12);
    worker().setSpeakerGain(1, -std::numeric_limits<double>::infinity());
    worker().setSpeakerGain(2, -5.0);
    worker().setSpeakerGain(2, std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(stimuliGain(0), std::numeric_limits<int>::max());
    EXPECT_EQ(stimuliGain(1), std::numeric_limits<int>::min());
    EXPECT_EQ(stimuliGain(2), 0);
}

// ---- Attenuation ----

TEST_F(DiracPlayerTest, SetsTheSystemAttenuation) {
    startDevice();
    worker().setAttenuation(-20.0);
    EXPECT_EQ(worker().getAttenuation(), -20.0);
    EXPECT_TRUE(logged("INFO Enter void Dirac::setAttenuation(double): -20"));
    EXPECT_TRUE(eventually([] { return valueAt(platform::attenuationPath()).double_() == -20.0; }));
}

TEST_F(DiracPlayerTest, FollowsTheSystemAttenuation) {
    startDevice();
    write(platform::attenuationPath(), VeskValue::ofDouble(-33.0));
    EXPECT_TRUE(eventually([this] { return worker().getAttenuation() == -33.0; }));
}

TEST_F(DiracPlayerTest, FollowsWhatThePlatformAppliedOfAWish) {
    startDevice();
    for (const double wish : {50.0, std::nan("")}) {
        worker().setAttenuation(wish);
        EXPECT_TRUE(eventually([this] { return worker().getAttenuation() == 0.0; })) << wish;
    }
}

TEST_F(DiracPlayerTest, KeepsAnAttenuationSetBeforeTheProxyExists) {
    startPlatform();
    constructWorker([this] {
        worker().setAttenuation(-20.0);
        EXPECT_EQ(worker().getAttenuation(), -20.0);
        EXPECT_EQ(valueAt(platform::attenuationPath()).double_(), 0.0);
    });
}

// ---- Player state ----

TEST_F(DiracPlayerTest, TellsTheEndpointWhatItsOwnPlaybackDoes) {
    startDevice();
    play(VeskService_Dirac_Id(), VeskPlayLogicState::Transitioning);
    play(VeskService_Dirac_Id(), VeskPlayLogicState::Playing);
    EXPECT_EQ(reportedStates(),
              textsOf({VeskPlayLogicState::Transitioning, VeskPlayLogicState::Playing}));
}

TEST_F(DiracPlayerTest, TellsThatAnotherServiceEndedItsPlayback) {
    startDevice();
    play(VeskService_Dirac_Id(), VeskPlayLogicState::Playing);
    play(kOtherService, VeskPlayLogicState::Playing);
    EXPECT_EQ(reportedStates(),
              textsOf({VeskPlayLogicState::Playing, VeskPlayLogicState::Stopped}));
}

TEST_F(DiracPlayerTest, TellsNothingWhenItsPlaybackHadStoppedBefore) {
    startDevice();
    play(VeskService_Dirac_Id(), VeskPlayLogicState::Playing);
    play(VeskService_Dirac_Id(), VeskPlayLogicState::Stopped);
    play(kOtherService, VeskPlayLogicState::Playing);
    EXPECT_EQ(reportedStates(),
              textsOf({VeskPlayLogicState::Playing, VeskPlayLogicState::Stopped}));
}

TEST_F(DiracPlayerTest, TellsNothingOfOtherServices) {
    startDevice();
    play(kOtherService, VeskPlayLogicState::Playing);
    play(QStringLiteral("tape"), VeskPlayLogicState::Paused);
    EXPECT_TRUE(reportedStates().empty());
}

TEST_F(DiracPlayerTest, TellsNothingWhenItsStateStaysTheSame) {
    startDevice();
    const VeskValue playing = dataOf(VeskService_Dirac_Id(), VeskPlayLogicState::Playing);
    inWorkerThread([&] { reportPlayerData(playing, playing); });
    EXPECT_TRUE(reportedStates().empty());
}

TEST_F(DiracPlayerTest, TellsNothingBeforeTheFirstStartOfTheServer) {
    startPlatform();
    constructWorker([this] {
        reportPlayerData(dataOf(VeskService_Dirac_Id(), VeskPlayLogicState::Playing),
                         dataOf(kOtherService, VeskPlayLogicState::Playing));
    });
    EXPECT_TRUE(reportedStates().empty());
}
