#include "calibrate/design/DesignFiles.h"
#include "calibrate/design/SpeakerDesign.h"
#include "calibrate/measurement/CurveFile.h"
#include "calibrate/measurement/Signals.h"
#include "calibrate/measurement/SoundFile.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <fstream>

using namespace calibrate;
using namespace calibrate::design;

namespace {

class DesignFilesTest : public testing::Test {
protected:
    DesignFilesTest() { writeDesign(folder_, design_, {}); }

    std::filesystem::path file(const std::string& name) const { return folder_ / name; }

    const SystemDesign design_ =
        designSystem({{"front left", false, 0, {{48'000, smallRoom(24'000, 480, 0.5, 7), 0}}}}, {});

private:
    ScratchDirectory scratch_;
    std::filesystem::path folder_{scratch_.path() / "new" / "folder"};
};

}  // namespace

TEST_F(DesignFilesTest, jsonHoldsEveryCoefficientExactly) {
    const auto json = nlohmann::json::parse(std::ifstream(file("design.json")));
    EXPECT_EQ(json["format"], "vesk-filter-design");
    const auto& filter = json["speakers"][0]["filters"][1];
    const auto& designed = design_.speakers[0].filters[1];
    EXPECT_EQ(filter["sample_rate_hz"], 44'100);
    EXPECT_EQ(filter["taps"].get<std::vector<float>>(), designed.taps);
    ASSERT_EQ(filter["sections"].size(), designed.sections.size());
    EXPECT_EQ(filter["sections"][3]["a1"].get<float>(), designed.sections[3].a1);
    EXPECT_EQ(filter["sections"][3]["b1"].get<float>(), designed.sections[3].b1);
}

TEST_F(DesignFilesTest, soundFileIsTheWholeFilter) {
    const auto sound = measurement::readSoundFile(file("front-left-48000.wav"));
    const auto impulse = design_.speakers[0].filters[0].impulseResponse(2'000);
    for (std::size_t i = 0; i < impulse.size(); ++i)
        ASSERT_NEAR(sound.channels[0][i], impulse[i], 1e-7);
}

TEST_F(DesignFilesTest, firFileHasTheTaps) {
    const auto sound = measurement::readSoundFile(file("front-left-44100-fir.wav"));
    EXPECT_EQ(sound.sampleRate, 44'100);
    EXPECT_EQ(sound.channels[0].size(), 1'000U);
}

TEST_F(DesignFilesTest, responsesAreReadBackAsColumns) {
    const auto& filter = design_.speakers[0].filters[0];
    const auto curve = measurement::readCurveFile(file("front-left-48000-response.txt")).curve;
    for (const auto& point : curve.points())
        ASSERT_NEAR(point.level, 20 * std::log10(std::abs(filter.response(point.frequency))), 0.01);
    for (const auto* name :
         {"front-left-before.txt", "front-left-after.txt", "front-left-target.txt"})
        EXPECT_GT(measurement::readCurveFile(file(name)).curve.points().size(), 500U);
}

TEST(DesignFiles, folderThatCannotBeMadeIsAnError) {
    const ScratchDirectory scratch;
    std::ofstream(scratch.path() / "file") << "x";
    EXPECT_THROW(writeDesign(scratch.path() / "file" / "folder", {}, {}), std::runtime_error);
}

TEST(DesignFiles, namesMakePlainFileNames) {
    EXPECT_EQ(fileName("front left"), "front-left");
    EXPECT_EQ(fileName("../etc"), "speaker..-etc");
    EXPECT_EQ(fileName(""), "speaker");
}
