#include "calibrate/Errors.h"
#include "calibrate/support/CommandFixture.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace calibrate {
namespace {

using nlohmann::json;
using testing::HasSubstr;

using GainsTest = CommandFixture;

TEST_F(GainsTest, ShowsEachGainWithItsRange) {
    device_.setGains({-20.5, -1, {{1, -5.99999964}}});
    ASSERT_EQ(run({"gains"}), kExitOk) << errors();

    EXPECT_EQ(output(),
              "Gain                      Now              Range\n"
              "Speakers                  -20.5 dB         -60.0 to 0.0 dB in steps of 0.5 dB\n"
              "Microphone                -1.0 dB          -20.0 to 0.0 dB in steps of 0.5 dB\n"
              "Stimuli, 0 \"Front left\"   not set, silent  -12.0 to 0.0 dB in steps of 0.5 dB\n"
              "Stimuli, 1 \"Front right\"  -6.0 dB          -12.0 to 0.0 dB in steps of 0.5 dB\n");
}

TEST_F(GainsTest, ShowsThemAsJson) {
    device_.setGains({-20.5, 0, {{1, -6}}});
    ASSERT_EQ(run({"gains", "--json"}), kExitOk) << errors();

    const auto result = json::parse(output());
    EXPECT_EQ(result["speaker"]["gain_db"], -20.5);
    EXPECT_EQ(result["speaker"]["range"]["minimum_db"], -60);
    EXPECT_EQ(result["stimuli"][0]["gain_db"], nullptr);
    EXPECT_EQ(result["stimuli"][1]["name"], "Front right");
    EXPECT_EQ(result["stimuli"][1]["gain_db"], -6);
}

TEST_F(GainsTest, SetsWhatIsGiven) {
    ASSERT_EQ(run({"gains", "--speakers", "-30", "--microphone", "-2", "--stimulus", "-6"}),
              kExitOk)
        << errors();

    EXPECT_EQ(device_.gains().speaker, -30);
    EXPECT_EQ(device_.gains().microphone, -2);
    EXPECT_EQ(device_.gains().stimuli, (std::map<int, double>{{0, -6}, {1, -6}}));
    EXPECT_THAT(output(), HasSubstr("-30.0 dB"));
}

TEST_F(GainsTest, SetsTheStimulusGainOfNamedSpeakers) {
    ASSERT_EQ(run({"gains", "--stimulus", "-6", "--speaker", "front right", "--quiet"}), kExitOk)
        << errors();

    EXPECT_EQ(device_.gains().stimuli, (std::map<int, double>{{1, -6}}));
    EXPECT_EQ(output(), "");
}

TEST_F(GainsTest, NothingIsSetWhenOneIsOutsideItsRange) {
    EXPECT_EQ(run({"gains", "--speakers", "-30", "--microphone", "5"}), kExitUsage);
    EXPECT_THAT(errors(), HasSubstr("--microphone 5.0 dB: the device takes -20.0 to 0.0 dB"));
    EXPECT_EQ(device_.gains().speaker, -20);
}

TEST_F(GainsTest, AGainThatTheDeviceDoesNotTakeIsTold) {
    device_.keepsSpeakerGain = true;

    EXPECT_EQ(run({"gains", "--speakers", "-30"}), kExitDevice);
    EXPECT_THAT(errors(),
                HasSubstr("--speakers -30.0 dB: the device did not take it, its gain is -20.0 dB"));
}

TEST_F(GainsTest, WhatTheDeviceDoesNotOfferIsNotTold) {
    device_.lack("GetMicGain");
    device_.lack("GetMicGainInfo");

    ASSERT_EQ(run({"gains"}), kExitOk) << errors();
    EXPECT_THAT(output(), HasSubstr("Microphone                not told"));
    EXPECT_EQ(run({"gains", "--microphone", "-1"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("GetMicGainInfo"));
}

}  // namespace
}  // namespace calibrate
