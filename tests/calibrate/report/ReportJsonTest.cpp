#include "calibrate/report/ReportJson.h"
#include "calibrate/report/TestCalibration.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <limits>

namespace calibrate::report {
namespace {

using Json = nlohmann::ordered_json;

Json jsonOf(const Calibration& calibration) {
    std::vector<SpeakerFigures> all;
    for (std::size_t i = 0; i < calibration.speakers.size(); ++i)
        all.push_back(figures(calibration, i));
    return Json::parse(toJson(calibration, all).dump());
}

std::vector<std::string> keysOf(const Json& json) {
    std::vector<std::string> keys;
    for (const auto& item : json.items())
        keys.push_back(item.key());
    return keys;
}

TEST(ReportJsonTest, KeysAreStable) {
    const auto json = jsonOf(stereoCalibration());

    EXPECT_EQ(json["format"], "vesk-calibration-report");
    EXPECT_EQ(json["version"], 1);
    EXPECT_THAT(
        keysOf(json),
        testing::ElementsAre("format", "version", "time_utc", "verdict", "versions", "device",
                             "slot", "slot_name", "microphone", "options", "attenuation_db",
                             "latency_ms", "bass_management", "filters", "warnings", "speakers"));
    EXPECT_THAT(keysOf(json["speakers"][0]),
                testing::ElementsAre("name", "kind", "summary", "deviation", "correction",
                                     "positions", "verification", "bass_decay", "curves"));
    EXPECT_THAT(
        keysOf(json["speakers"][0]["positions"][0]),
        testing::ElementsAre("level_dbfs", "noise_dbfs", "verdict", "checks", "signal_to_noise",
                             "distortion", "recording", "impulse_response", "response"));
}

TEST(ReportJsonTest, DecayTimesAreToldWhereTheyCanBeMeasured) {
    const auto decay = jsonOf(stereoCalibration())["speakers"][0]["bass_decay"];

    EXPECT_THAT(keysOf(decay), testing::ElementsAre("before", "predicted", "after"));
    ASSERT_EQ(decay["before"].size(), 11U);
    const auto& mode = decay["before"][3];
    EXPECT_EQ(mode["frequency_hz"], 50.0);
    EXPECT_NEAR(mode["time_s"].get<double>(), 0.5, 0.025);
    EXPECT_EQ(mode["range_db"], 20);
    EXPECT_EQ(mode["certain"], true);
    const Json nothing{
        {"frequency_hz", 250.0}, {"time_s", nullptr}, {"range_db", nullptr}, {"certain", nullptr}};
    EXPECT_EQ(decay["before"][10], nothing);
    EXPECT_EQ(jsonOf(measuredCalibration({"A"}))["speakers"][0]["bass_decay"]["after"], nullptr);
}

TEST(ReportJsonTest, ValuesAreThoseOfTheCalibration) {
    const auto json = jsonOf(stereoCalibration());

    EXPECT_EQ(json["time_utc"], "2024-05-01 12:30:00 UTC");
    EXPECT_EQ(json["device"]["name"], "Streamer");
    EXPECT_EQ(json["slot"], 2);
    EXPECT_EQ(json["options"]["max_boost_db"], 6.0);
    EXPECT_EQ(json["verdict"], "good");
    const auto& position = json["speakers"][1]["positions"][0];
    EXPECT_EQ(position["noise_dbfs"], -63.25);
    EXPECT_EQ(position["checks"][0]["subject"], "clipping");
    EXPECT_EQ(position["distortion"][1], (Json{{"order", 3}, {"level_db", -60.0}}));
    EXPECT_EQ(position["recording"], nullptr);
    EXPECT_EQ(position["response"], "responses/2-front-right-position-1.txt");
    EXPECT_EQ(json["speakers"][1]["correction"]["filters"][0]["taps"], 200);
}

TEST(ReportJsonTest, NumbersAreRounded) {
    Calibration calibration = measuredCalibration({"A"});
    calibration.speakers[0].positions[0].level = -20.123456789;
    calibration.speakers[0].positions[0].noise = -0.0000001;

    const auto position = jsonOf(calibration)["speakers"][0]["positions"][0];

    EXPECT_EQ(position["level_dbfs"].dump(), "-20.12");
    EXPECT_EQ(position["noise_dbfs"].dump(), "0.0");
}

TEST(ReportJsonTest, WhatIsNoNumberIsNull) {
    Calibration calibration = measuredCalibration({"A"});
    calibration.speakers[0].positions[0].level = std::numeric_limits<double>::quiet_NaN();
    calibration.speakers[0].positions[0].noise = -std::numeric_limits<double>::infinity();

    const auto position = jsonOf(calibration)["speakers"][0]["positions"][0];

    EXPECT_EQ(position["level_dbfs"], nullptr);
    EXPECT_EQ(position["noise_dbfs"], nullptr);
}

TEST(ReportJsonTest, WhatDidNotHappenIsNull) {
    const auto json = jsonOf(measuredCalibration({"A"}));

    EXPECT_EQ(json["attenuation_db"], nullptr);
    EXPECT_EQ(json["filters"], nullptr);
    EXPECT_EQ(json["latency_ms"], nullptr);
    EXPECT_EQ(json["speakers"][0]["correction"], nullptr);
    EXPECT_EQ(json["speakers"][0]["verification"], nullptr);
    EXPECT_EQ(json["speakers"][0]["deviation"]["after_db"], nullptr);
    EXPECT_EQ(json["speakers"][0]["curves"]["after_db"], nullptr);
}

TEST(ReportJsonTest, CurvesHaveOneLevelForEachFrequency) {
    const auto curves = jsonOf(stereoCalibration())["speakers"][0]["curves"];

    const auto count = curves["frequency_hz"].size();
    EXPECT_GT(count, 300U);
    for (const auto* key : {"target_db", "before_db", "predicted_db", "after_db"})
        EXPECT_EQ(curves[key].size(), count) << key;
}

TEST(ReportJsonTest, LevelsAboveTheNyquistFrequencyAreNull) {
    Calibration calibration = measuredCalibration({"A"});
    calibration.speakers[0].positions[0].response.sampleRate = 16'000;

    const auto curves = jsonOf(calibration)["speakers"][0]["curves"];

    EXPECT_EQ(curves["before_db"].size(), curves["frequency_hz"].size());
    EXPECT_EQ(curves["before_db"].back(), nullptr);
    EXPECT_TRUE(curves["before_db"].front().is_number());
}

TEST(ReportJsonTest, NoTextBreaksTheEncoding) {
    Calibration calibration = measuredCalibration({"\xff\xfe\x01"});
    calibration.device.name = "\x80";
    calibration.versions = {{"\xff", "1"}};

    const auto json = jsonOf(calibration);

    EXPECT_EQ(json["speakers"][0]["name"], "???");
    EXPECT_EQ(json["device"]["name"], "?");
}

TEST(ReportJsonTest, AKnownLatencyGivesDistances) {
    Calibration calibration = stereoCalibration();
    EXPECT_EQ(jsonOf(calibration)["speakers"][0]["correction"]["distance_m"], nullptr);
    calibration.latency = 0.004;

    const auto json = jsonOf(calibration);

    EXPECT_EQ(json["latency_ms"], 4.0);
    EXPECT_NEAR(json["speakers"][0]["correction"]["distance_m"].get<double>(), 343 * 0.006, 0.01);
}

}  // namespace
}  // namespace calibrate::report
