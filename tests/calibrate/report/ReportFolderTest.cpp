#include "calibrate/Errors.h"
#include "calibrate/design/DesignJson.h"
#include "calibrate/measurement/SoundFile.h"
#include "calibrate/report/ReportFolder.h"
#include "calibrate/report/TestCalibration.h"
#include "support/ScratchDirectory.h"
#include "system/LimitedDisk.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <sys/resource.h>

#include <csignal>
#include <fstream>
#include <set>
#include <sstream>

namespace calibrate::report {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::IsEmpty;

class ReportFolderTest : public testing::Test {
protected:
    static void keepRecording(Calibration& calibration, double sampleRate) {
        auto& recording = calibration.speakers[0].positions[0].recording;
        recording.sampleRate = sampleRate;
        recording.samples = {0.25, -0.5};
    }

    fs::path path(const std::string& name) const { return scratch_.path() / name; }

    static std::string contentOf(const fs::path& path) {
        std::ostringstream content;
        content << std::ifstream(path, std::ios::binary).rdbuf();
        return content.str();
    }

    static void expectSameSound(const fs::path& a, const fs::path& b) {
        EXPECT_TRUE(measurement::readSoundFile(a).channels ==
                    measurement::readSoundFile(b).channels)
            << a;
    }

    std::set<std::string> filesIn(const std::string& name) const {
        std::set<std::string> files;
        for (const auto& entry : fs::recursive_directory_iterator(path(name)))
            if (entry.is_regular_file())
                files.insert(fs::relative(entry.path(), path(name)).string());
        return files;
    }

    /// Everything in the scratch directory, hidden files too.
    std::set<std::string> entries() const {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(scratch_.path()))
            names.insert(entry.path().filename().string());
        return names;
    }

    template <class Error>
    std::string messageOf(const std::string& name) const {
        try {
            write(stereoCalibration(), path(name));
        } catch (const Error& error) {
            return error.what();
        }
        return "nothing was thrown";
    }

private:
    ScratchDirectory scratch_;
};

/// Lets files grow to so many bytes while it lives.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, SIG_DFL);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit before_{};
};

TEST_F(ReportFolderTest, HoldsEverything) {
    Calibration calibration = stereoCalibration();
    keepRecording(calibration, 48'000);

    write(calibration, path("out"));

    EXPECT_THAT(
        filesIn("out"),
        testing::UnorderedElementsAre(
            "report.html", "report.json", "filters/design.json", "filters/1-front-left-48000.wav",
            "filters/1-front-left-48000-fir.wav", "filters/1-front-left-48000-response.txt",
            "filters/2-front-right-48000.wav", "filters/2-front-right-48000-fir.wav",
            "filters/2-front-right-48000-response.txt", "impulse-responses/1-front-left-after.wav",
            "impulse-responses/1-front-left-position-1.wav",
            "impulse-responses/1-front-left-predicted.wav",
            "impulse-responses/2-front-right-after.wav",
            "impulse-responses/2-front-right-position-1.wav",
            "impulse-responses/2-front-right-predicted.wav",
            "recordings/1-front-left-position-1.wav", "responses/1-front-left-after.txt",
            "responses/1-front-left-position-1.txt", "responses/1-front-left-predicted.txt",
            "responses/2-front-right-after.txt", "responses/2-front-right-position-1.txt",
            "responses/2-front-right-predicted.txt", "responses/target.txt"));
    EXPECT_EQ(entries(), std::set<std::string>{"out"});
}

TEST_F(ReportFolderTest, WavFilesHoldWhatWasMeasuredAndDesigned) {
    Calibration calibration = stereoCalibration();
    keepRecording(calibration, 44'100);

    write(calibration, path("out"));

    const auto recording =
        measurement::readSoundFile(path("out/recordings/1-front-left-position-1.wav"));
    EXPECT_EQ(recording.sampleRate, 44'100);
    EXPECT_THAT(recording.channels, testing::ElementsAre(testing::ElementsAre(0.25, -0.5)));
    const auto filter = measurement::readSoundFile(path("out/filters/2-front-right-48000.wav"));
    const auto& designed = calibration.design->speakers[1].filters[0];
    EXPECT_EQ(filter.channels[0].size(), 32'768U);
    EXPECT_FLOAT_EQ(static_cast<float>(filter.channels[0][100]),
                    static_cast<float>(designed.impulseResponse(101)[100]));
}

TEST_F(ReportFolderTest, TheDesignCanBeReadBack) {
    write(stereoCalibration(), path("out"));

    const auto read = design::readDesign(path("out/filters/design.json"));
    const auto& designed = stereoCalibration().design->speakers;
    ASSERT_EQ(read.speakers.size(), 2U);
    EXPECT_EQ(read.speakers[1].filters[0].taps, designed[1].filters[0].taps);
}

TEST_F(ReportFolderTest, EveryFileThatTheJsonNamesIsThere) {
    write(stereoCalibration(), path("out"));

    const auto json = nlohmann::json::parse(contentOf(path("out/report.json"))).flatten();
    int found = 0;
    for (const auto& item : json.items()) {
        if (!item.value().is_string())
            continue;
        const auto name = item.value().get<std::string>();
        if (!name.ends_with(".wav") && !name.ends_with(".txt") && !name.ends_with(".json"))
            continue;
        EXPECT_TRUE(fs::exists(path("out") / name)) << name;
        ++found;
    }
    EXPECT_EQ(found, 13);
}

TEST_F(ReportFolderTest, TheSameCalibrationGivesTheSameFiles) {
    write(stereoCalibration(), path("a"));
    write(stereoCalibration(), path("b"));

    ASSERT_EQ(filesIn("a"), filesIn("b"));
    for (const auto& file : filesIn("a")) {
        if (file.ends_with(".wav"))  // its header tells when it was made
            expectSameSound(path("a") / file, path("b") / file);
        else
            EXPECT_TRUE(contentOf(path("a") / file) == contentOf(path("b") / file)) << file;
    }
}

TEST_F(ReportFolderTest, SpeakersOfOneNameKeepTheirFilesApart) {
    write(measuredCalibration({"A", "A"}), path("out"));

    EXPECT_EQ(filesIn("out").count("responses/1-a-position-1.txt"), 1U);
    EXPECT_EQ(filesIn("out").count("responses/2-a-position-1.txt"), 1U);
}

TEST_F(ReportFolderTest, BrokenResponsesAreLeftOut) {
    Calibration calibration = measuredCalibration({"A"});
    calibration.speakers[0].positions[0].response.samples.clear();

    write(calibration, path("out"));

    EXPECT_THAT(filesIn("out"), testing::UnorderedElementsAre("report.html", "report.json",
                                                              "responses/target.txt"));
}

TEST_F(ReportFolderTest, AnEmptyFolderIsFilled) {
    fs::create_directory(path("out"));

    write(measuredCalibration({"A"}), path("out/"));

    EXPECT_TRUE(fs::exists(path("out/report.html")));
    EXPECT_EQ(entries(), std::set<std::string>{"out"});
}

TEST_F(ReportFolderTest, ALinkToAnEmptyFolderStaysALink) {
    fs::create_directory(path("out"));
    fs::create_directory_symlink("out", path("link"));

    write(measuredCalibration({"A"}), path("link"));

    EXPECT_TRUE(fs::is_symlink(path("link")));
    EXPECT_TRUE(fs::exists(path("out/report.html")));
}

TEST_F(ReportFolderTest, AFolderWithFilesIsLeftAlone) {
    fs::create_directory(path("out"));
    std::ofstream(path("out/mine.txt")) << "mine";

    EXPECT_THAT(messageOf<BadInput>("out"),
                HasSubstr("out: holds files already; give a new or an empty folder"));
    EXPECT_EQ(filesIn("out"), std::set<std::string>{"mine.txt"});
}

TEST_F(ReportFolderTest, AFileIsLeftAlone) {
    std::ofstream(path("out")) << "mine";

    EXPECT_THAT(messageOf<BadInput>("out"), HasSubstr("out: is no folder; give another name"));
    EXPECT_EQ(contentOf(path("out")), "mine");
}

TEST_F(ReportFolderTest, TheFolderAboveMustExist) {
    EXPECT_THAT(messageOf<BadInput>("no/out"), HasSubstr("does not exist"));
    EXPECT_THAT(entries(), IsEmpty());
}

TEST_F(ReportFolderTest, TheCurrentFolderIsNotReplaced) {
    const auto before = fs::current_path();
    fs::create_directory(path("here"));
    fs::current_path(path("here"));
    EXPECT_THROW(write(measuredCalibration({"A"}), "."), BadInput);
    fs::current_path(before);
}

TEST_F(ReportFolderTest, AFolderCanBeCheckedBeforehand) {
    EXPECT_NO_THROW(checkFolder(path("out")));
    EXPECT_THAT(entries(), IsEmpty());
    EXPECT_THROW(checkFolder(path("no/out")), BadInput);
}

TEST_F(ReportFolderTest, ADesignOfOtherSpeakersIsAProgramsError) {
    Calibration calibration = stereoCalibration();
    calibration.speakers.pop_back();

    EXPECT_THROW(write(calibration, path("out")), std::invalid_argument);
    EXPECT_THAT(entries(), IsEmpty());
}

TEST_F(ReportFolderTest, WhatCannotBeWrittenLeavesNothing) {
    for (const rlim_t bytes : {0UL, 1'000UL, 20'000UL, 100'000UL}) {
        const FileSizeLimit limit(bytes);
        EXPECT_THAT(messageOf<OutputError>("out"), HasSubstr("no report was made")) << bytes;
        EXPECT_THAT(entries(), IsEmpty()) << bytes;
    }
}

TEST_F(ReportFolderTest, AFullDiskIsNamed) {
    fs::create_directory(path("disk"));
    const auto disk = LimitedDisk::mount(path("disk"), 1'000'000);
    if (!disk)
        GTEST_SKIP() << "file systems cannot be mounted here";

    EXPECT_THAT(messageOf<OutputError>("disk/out"),
                HasSubstr("cannot be written: No space left on device; no report was made"));
    EXPECT_TRUE(fs::is_empty(path("disk")));
}

}  // namespace
}  // namespace calibrate::report
