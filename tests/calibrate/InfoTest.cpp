#include "calibrate/Errors.h"
#include "calibrate/Info.h"
#include "calibrate/support/CommandFixture.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace calibrate {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;

class InfoTest : public CommandFixture {
protected:
    json infoJson() {
        EXPECT_EQ(run({"--json", "info"}), kExitOk) << errors();
        return json::parse(output());
    }
};

TEST_F(InfoTest, ShowsTheWholeTopologyAsText) {
    device_.speakers[1].set_kind(4);
    device_.speakers[1].set_group(3);
    device_.store(2, "Evening", 1'714'566'600'000);
    device_.setActive(2);
    ASSERT_EQ(run({"info"}), kExitOk) << errors();

    EXPECT_THAT(output(), AllOf(HasSubstr("Living room"), HasSubstr("Maker"), HasSubstr("Model"),
                                HasSubstr("01234567-89ab-5def-8123-456789abcdef")));
    EXPECT_THAT(output(), ContainsRegex("0 +Front left +0 +0 +0\n"));
    EXPECT_THAT(output(), ContainsRegex("1 +Front right +4 .subwoofer. +3 +1\n"));
    EXPECT_THAT(output(), ContainsRegex("0 +Microphone\n"));
    EXPECT_THAT(output(), ContainsRegex("2 +3 +3 +matrix +delay_gain +0, 1\n"));
    EXPECT_THAT(output(), ContainsRegex("5 +2 +2 +diagonal +fiir +0, 1\n"));
    EXPECT_THAT(output(), ContainsRegex("fiir +1 +44.1 kHz +1000 taps, 30 biquads\n"));
    EXPECT_THAT(output(), ContainsRegex("iir +0 +48 kHz +6 biquads\n"));
    EXPECT_THAT(output(), ContainsRegex("delay_gain +0 +48 kHz +150 samples, up to 10.0 dB\n"));
    EXPECT_THAT(output(), ContainsRegex("log_sweep +1 +48 kHz +10 Hz to 300 Hz +24000 samples"));
    EXPECT_THAT(output(), ContainsRegex("pink_noise +0 +48 kHz +whole band"));
    EXPECT_THAT(output(), HasSubstr("log_sweep 0, pink_noise 0"));
    EXPECT_THAT(output(), HasSubstr("-60.0 to 0.0 dB in steps of 0.5 dB"));
    EXPECT_THAT(output(), HasSubstr("48 kHz, blocks of 512 samples"));
    EXPECT_THAT(output(), ContainsRegex("2 +active +Evening +FIR +2024-05-01 12:30:00 UTC"));
}

TEST_F(InfoTest, ShowsTheWholeTopologyAsJson) {
    device_.speakers[1].clear_associated_input();
    const json all = infoJson();

    EXPECT_EQ(all["device"]["name"], "Living room");
    EXPECT_EQ(all["speakers"][0]["associated_input"], 0);
    EXPECT_EQ(all["speakers"][1]["associated_input"], nullptr);
    EXPECT_EQ(all["microphones"][0]["name"], "Microphone");
    EXPECT_EQ(all["sections"].size(), 6U);
    EXPECT_EQ(all["sections"][5]["filter_kind"], "fiir");
    EXPECT_EQ(all["sections"][5]["disposition"], "diagonal");
    EXPECT_EQ(all["log_sweeps"][0]["end_frequency_hz"], 24000);
    EXPECT_EQ(all["log_sweeps"][0]["fade_out_tail_hz"], 300);
    EXPECT_EQ(all["pink_noises"].size(), 1U);
    EXPECT_EQ(
        all["fiir_capacities"][1],
        (json{{"variant", 1}, {"sample_rate_hz", 44100}, {"max_taps", 1000}, {"max_biquads", 30}}));
    EXPECT_EQ(all["delay_gain_capacities"][0]["max_delay_samples"], 150);
    EXPECT_EQ(all["gain_ranges"]["microphone"]["minimum_db"], -20);
    EXPECT_EQ(all["streaming"]["block_length_samples"], 512);
    EXPECT_EQ(all["active_slot"], nullptr);
    EXPECT_EQ(all["filtering"], true);
    EXPECT_EQ(all["slots"].size(), 8U);
}

TEST_F(InfoTest, WhatADeviceDoesNotOfferIsLeftOut) {
    for (const char* method : {"GetOperationMode", "GetSpeakerGainInfo", "GetMicGainInfo",
                               "GetStimuliGainInfo", "GetStreamingInfo", "GetPinkNoiseInfo"})
        device_.lack(method);
    const json all = infoJson();
    EXPECT_EQ(all["gain_ranges"]["speaker"], nullptr);
    EXPECT_EQ(all["streaming"], nullptr);
    EXPECT_EQ(all["filtering"], nullptr);
    EXPECT_EQ(all["pink_noises"], json::array());

    EXPECT_EQ(run({"info"}), kExitOk);
    EXPECT_THAT(output(), HasSubstr("not told"));
}

TEST_F(InfoTest, AFailureAmongTheAnswersIsNoTopology) {
    device_.fail("GetLogSweepInfo", {grpc::StatusCode::INTERNAL, "broken"}, 1);

    EXPECT_EQ(run({"info"}), kExitDevice);
    EXPECT_EQ(output(), "");
    EXPECT_THAT(errors(), HasSubstr("GetLogSweepInfo"));
}

TEST_F(InfoTest, CountsThatNoDeviceHasAreRefused) {
    device_.device.set_num_speakers(4'000'000'000U);

    EXPECT_EQ(run({"info"}), kExitDevice);
    EXPECT_THAT(errors(), HasSubstr("4000000000 speakers"));
}

TEST_F(InfoTest, AHostileTextDoesNotReachTheTerminal) {
    device_.device.set_device_name("\x1b]0;owned\x07");
    ASSERT_EQ(run({"info"}), kExitOk);

    EXPECT_EQ(output().find('\x1b'), std::string::npos);
}

}  // namespace
}  // namespace calibrate
