#include "modules/dirac/RpcHandler.h"
#include "sdk/cm/VeskPaths.h"
#include "support/DeviceFixture.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>

using namespace dio::endpoint;

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

class RpcHandlerGainsTest : public DeviceFixture {
protected:
    void SetUp() override { startDevice(); }

    std::string setStimuliGain(int channel, double gain) {
        StimuliGain request;
        request.set_channel(channel);
        request.set_gain(gain);
        return outcomeOf(&Stub::SetStimuliGain, request);
    }

    double stimuliGain(int channel) { return ask(&Stub::GetStimuliGain, indexOf(channel)).gain(); }

    void setMicGain(double gain) { ask(&Stub::SetMicGain, gainOf(gain)); }
    double micGain() { return ask(&Stub::GetMicGain, Void()).gain(); }

    void setMode(bool gain, bool delay, bool filtering) {
        OperationMode mode;
        mode.set_gain(gain);
        mode.set_delay(delay);
        mode.set_filtering(filtering);
        ask(&Stub::SetOperationMode, mode);
    }

    static Gain gainOf(double decibels) {
        Gain gain;
        gain.set_gain(decibels);
        return gain;
    }
};

}  // namespace

// ---- Ranges ----

TEST_F(RpcHandlerGainsTest, NamesTheRangeOfEachGain) {
    EXPECT_EQ(ask(&Stub::GetStimuliGainInfo, Void()).minimum(), -12.0);
    EXPECT_EQ(ask(&Stub::GetSpeakerGainInfo, Void()).minimum(), -60.0);
    const auto mic = ask(&Stub::GetMicGainInfo, Void());
    EXPECT_EQ(mic.minimum(), -20.0);
    EXPECT_EQ(mic.step(), 0.5);
    EXPECT_EQ(mic.maximum(), 0.0);
}

// ---- Decibels ----

TEST(DecibelToLinearClampedTest, ConvertsAGainInsideTheRange) {
    EXPECT_NEAR(RpcHandler::decibelToLinearClamped(-6.0, 0.0, -20.0), 0.501187, 1e-6);
}

TEST(DecibelToLinearClampedTest, BringsAGainIntoTheRange) {
    EXPECT_EQ(RpcHandler::decibelToLinearClamped(5.0, 0.0, -20.0), 1.0F);
    EXPECT_EQ(RpcHandler::decibelToLinearClamped(-30.0, 0.0, -20.0), 0.1F);
    EXPECT_EQ(RpcHandler::decibelToLinearClamped(kInfinity, 0.0, -20.0), 1.0F);
    EXPECT_EQ(RpcHandler::decibelToLinearClamped(-kInfinity, 0.0, -20.0), 0.1F);
}

TEST(DecibelToLinearClampedTest, TakesNotANumberForTheLowerLimit) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(RpcHandler::decibelToLinearClamped(nan, 0.0, -20.0), 0.1F);
}

TEST(DecibelToLinearClampedTest, PrefersTheUpperLimitWhenTheLimitsAreCrossed) {
    EXPECT_EQ(RpcHandler::decibelToLinearClamped(-5.0, 0.0, 20.0), 1.0F);
}

// ---- Speaker gain ----

TEST_F(RpcHandlerGainsTest, TheSpeakerGainIsTheSystemAttenuation) {
    ask(&Stub::SetSpeakerGain, gainOf(-21.5));
    EXPECT_EQ(worker().getAttenuation(), -21.5);
    EXPECT_EQ(ask(&Stub::GetSpeakerGain, Void()).gain(), -21.5);
    EXPECT_TRUE(log().contains(": Set speaker gain to -21.5 dB"));
}

// ---- Microphone gain ----

TEST_F(RpcHandlerGainsTest, TheMicrophoneGainStartsAt0Decibels) {
    EXPECT_EQ(micGain(), 0.0);
}

TEST_F(RpcHandlerGainsTest, KeepsTheMicrophoneGain) {
    setMicGain(-6.0);
    EXPECT_NEAR(micGain(), -6.0, 1e-5);
    EXPECT_TRUE(log().contains(": Set microphone gain to -6 dB"));
}

TEST_F(RpcHandlerGainsTest, BringsTheMicrophoneGainIntoItsRange) {
    setMicGain(3.0);
    EXPECT_EQ(micGain(), 0.0);
    setMicGain(-50.0);
    EXPECT_NEAR(micGain(), -20.0, 1e-5);
}

// ---- Stimulus gain ----

TEST_F(RpcHandlerGainsTest, AStimulusIsSilentUntilItsGainIsSet) {
    EXPECT_EQ(stimuliGain(0), -kInfinity);
    EXPECT_EQ(stimuliGain(1), -kInfinity);
}

TEST_F(RpcHandlerGainsTest, BringsAStimulusGainIntoItsRange) {
    EXPECT_EQ(setStimuliGain(0, 6.0), "OK");
    EXPECT_EQ(stimuliGain(0), 0.0);
    EXPECT_EQ(setStimuliGain(0, -30.0), "OK");
    EXPECT_NEAR(stimuliGain(0), -12.0, 1e-5);
    EXPECT_EQ(stimuliGain(1), -kInfinity);
    EXPECT_TRUE(log().contains(": Set stimuli gain channel = 0 Gain = -30"));
}

TEST_F(RpcHandlerGainsTest, AnswersWithTheStimulusGainAlone) {
    setStimuliGain(1, -3.0);
    const auto answer = ask(&Stub::GetStimuliGain, indexOf(1));
    EXPECT_NEAR(answer.gain(), -3.0, 1e-5);
    EXPECT_EQ(answer.channel(), 0) << "not stated";
}

TEST_F(RpcHandlerGainsTest, GivesTheWorkerTheStimulusGainAsItCame) {
    setStimuliGain(1, -30.0);
    EXPECT_EQ(valueAt(VeskTalvorCorbelDiracStimuliGainDB1()).i32_(), -30);
    EXPECT_TRUE(logged("INFO set speaker gain index: 1 att: -30"));
}

TEST_F(RpcHandlerGainsTest, RejectsAStimulusChannelOutOfRange) {
    constexpr const char* kRejected = "INVALID_ARGUMENT \"Index is out of bounds.\"";
    for (const int channel : {2, -1}) {
        EXPECT_EQ(setStimuliGain(channel, 0.0), kRejected);
        EXPECT_EQ(outcomeOf(&Stub::GetStimuliGain, indexOf(channel)), kRejected);
    }
    EXPECT_FALSE(log().contains("INFO set speaker gain index: "));
}

// ---- Operation mode ----

TEST_F(RpcHandlerGainsTest, GainAndDelayAreOnTogetherOnly) {
    setMode(true, true, false);
    setMode(true, false, true);
    const auto mode = ask(&Stub::GetOperationMode, Void());
    EXPECT_FALSE(mode.gain());
    EXPECT_FALSE(mode.delay());
    EXPECT_TRUE(mode.filtering());
    EXPECT_TRUE(log().contains(": Gain: 1 Delay: 0 Filtering: 1"));
    EXPECT_TRUE(
        log().contains(": Delay and Gain procesing enabled: 0 Filter procesing enabled: 1"));
}

TEST_F(RpcHandlerGainsTest, StoresTheOperationMode) {
    setMode(true, true, false);
    const auto mode = ask(&Stub::GetOperationMode, Void());
    EXPECT_TRUE(mode.gain());
    EXPECT_TRUE(mode.delay());
    EXPECT_FALSE(mode.filtering());
    EXPECT_TRUE(settings().delayGainEnabled());
    EXPECT_FALSE(settings().filteringEnabled());
    EXPECT_FALSE(valueAt(VeskTalvorCorbelFilteringEnabled()).bool_());
}
