#include "calibrate/report/FileNames.h"

#include <gmock/gmock.h>

namespace calibrate::report {
namespace {

TEST(FileNamesTest, NamesTellSpeakerPositionAndRate) {
    const FileNames names(0, "Front left");

    EXPECT_EQ(names.recording(FileNames::position(0)), "recordings/1-front-left-position-1.wav");
    EXPECT_EQ(names.impulseResponse(FileNames::kAfter), "impulse-responses/1-front-left-after.wav");
    EXPECT_EQ(names.response(FileNames::kPredicted), "responses/1-front-left-predicted.txt");
    EXPECT_EQ(names.filter(44'100), "filters/1-front-left-44100.wav");
    EXPECT_EQ(names.filterResponse(48'000), "filters/1-front-left-48000-response.txt");
}

TEST(FileNamesTest, SpeakersOfOneNameHaveFilesOfTheirOwn) {
    EXPECT_NE(FileNames(0, "A").filter(48'000), FileNames(1, "A").filter(48'000));
}

TEST(FileNamesTest, NoNameLeavesItsFolder) {
    EXPECT_EQ(FileNames(0, "../../etc/passwd").filter(48'000), "filters/1-etc-passwd-48000.wav");
    EXPECT_EQ(FileNames(0, "صوت").filter(48'000), "filters/1-speaker-48000.wav");
    EXPECT_EQ(FileNames(0, std::string(5'000, 'a')).filter(48'000),
              "filters/1-" + std::string(40, 'a') + "-48000.wav");
}

}  // namespace
}  // namespace calibrate::report
