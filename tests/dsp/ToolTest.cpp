#include "dsp/DirectForm.h"
#include "dsp/Signals.h"
#include "dsp/TestImage.h"
#include "dsp/WavFile.h"
#include "sdk/services/SharedLock.h"
#include "segment/TestSegment.h"
#include "support/ScratchDirectory.h"
#include "support/Subprocess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sndfile.h>

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <optional>

namespace {

using dsp::Sound;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

class DspToolTest : public testing::Test {
protected:
    std::string path(const std::string& name) const { return (directory_.path() / name).string(); }

    ProcessResult tool(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), VESK_DSP_TOOL);
        return runProcess(arguments);
    }
    ProcessResult process(std::vector<std::string> options = {}) const {
        options.insert(options.begin(), {"process", path("in.wav"), path("out.wav")});
        return tool(options);
    }
    ProcessResult processSegment(std::vector<std::string> options = {}) const {
        options.insert(options.end(), {"--key", std::to_string(key_)});
        return process(options);
    }

    void publish(const DiracConfiguration& image) {
        segment_.emplace(key_);
        segment_->publish(image);
    }

    void writeInput(const Channels& channels, unsigned rate, bool isWide = true) const {
        dsp::writeWav(path("in.wav"), {rate, isWide, channels});
    }
    Sound output() const { return dsp::readSound(path("out.wav")); }

    void expectFailure(const ProcessResult& result, const std::string& text) const {
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_THAT(result.output, IsEmpty());
        EXPECT_THAT(result.errors, AllOf(HasSubstr("vesk-dsp: "), HasSubstr(text)));
        EXPECT_FALSE(std::filesystem::exists(path("out.wav")));
        EXPECT_THAT(hiddenFiles(), IsEmpty());
    }

    std::vector<std::string> hiddenFiles() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(directory_.path())) {
            if (const auto name = entry.path().filename().string(); name.starts_with('.'))
                names.push_back(name);
        }
        return names;
    }

    /// As on a disk that takes at most a kilobyte of a file.
    ProcessResult toolOnAFullDisk(const std::string& arguments) const {
        return runProcess(
            {"/bin/sh", "-c", "trap '' XFSZ; ulimit -f 1; exec '" VESK_DSP_TOOL "' " + arguments},
            directory_.path());
    }
    std::string contentOf(const std::string& name) const {
        std::ifstream stream(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    const ScratchDirectory directory_;
    const int key_ = unusedKey();
    std::optional<TestSegment> segment_;
};

TEST_F(DspToolTest, SendsAFileThroughTheFilterOfTheSegment) {
    const auto image = filterImage(2, 1000, 30);
    publish(*image);
    const Channels input = noise(2, 20000);
    writeInput(input, 48000);
    const auto result = processSegment();
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.errors, IsEmpty());
    EXPECT_EQ(output().rate, 48000U);
    EXPECT_LT(errorLevel(output().channels, directDsp(*image, input, 48000)), -120);
}

TEST_F(DspToolTest, OutputIsInStepWithTheInput) {
    publish(*plainImage());
    const Channels input = noise(3, 9001);
    writeInput(input, 192000);
    EXPECT_EQ(processSegment().exitCode, 0);
    EXPECT_EQ(output().channels, input);
}

TEST_F(DspToolTest, LatencyIsKeptOnDemand) {
    publish(*plainImage());
    Channels input = noise(1, 5000);
    writeInput(input, 96000);
    EXPECT_EQ(processSegment({"--keep-latency"}).exitCode, 0);
    input.front().resize(5000 + 254);
    EXPECT_EQ(output().channels, delayed(input, 254));
}

TEST_F(DspToolTest, RateCountsInsteadOfTheFiles) {
    const auto image = filterImage(1, 100, 5);
    publish(*image);
    const Channels input = noise(1, 5000);
    writeInput(input, 48000);
    EXPECT_EQ(processSegment({"--rate", "44100"}).exitCode, 0);
    EXPECT_EQ(output().rate, 44100U);
    EXPECT_LT(errorLevel(output().channels, directDsp(*image, input, 44100)), -120);
}

TEST_F(DspToolTest, ASavedImageServesAsTheSegmentDoes) {
    const auto image = filterImage(2, 100, 5);
    publish(*image);
    writeInput(noise(2, 3000), 88200);
    ASSERT_EQ(processSegment().exitCode, 0);
    const Channels expected = output().channels;
    ASSERT_EQ(tool({"save", path("saved"), "--key", std::to_string(key_)}).exitCode, 0);
    EXPECT_EQ(std::filesystem::file_size(path("saved")), sizeof(DiracSegment));
    segment_.reset();
    std::filesystem::remove(path("out.wav"));
    EXPECT_EQ(process({"--image", path("saved")}).exitCode, 0);
    EXPECT_EQ(output().channels, expected);
}

TEST_F(DspToolTest, WhatCannotBeUsedIsSaid) {
    const auto image = filterImage(2, 100, 5);
    image->groups[0][1].taps[5] = std::numeric_limits<float>::infinity();
    publish(*image);
    writeInput(noise(2, 100), 48000);
    const auto result = processSegment();
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.errors, "vesk-dsp: channel 1 is left uncorrected: tap 5 is not a number\n");
}

TEST_F(DspToolTest, SixteenAndTwentyFourBitsBecomeFloats) {
    publish(*plainImage());
    writeInput(noise(1, 100), 48000, false);
    EXPECT_EQ(processSegment().exitCode, 0);
    EXPECT_FALSE(output().isWide);
    EXPECT_EQ(output().channels, dsp::readSound(path("in.wav")).channels);
}

TEST_F(DspToolTest, TheOutputMayReplaceTheInput) {
    publish(*plainImage());
    const Channels input = noise(1, 1000);
    writeInput(input, 48000);
    EXPECT_EQ(
        tool({"process", path("in.wav"), path("in.wav"), "--key", std::to_string(key_)}).exitCode,
        0);
    EXPECT_EQ(dsp::readSound(path("in.wav")).channels, input);
}

TEST_F(DspToolTest, WithoutASegmentItEndsWithOne) {
    writeInput(noise(1, 100), 48000);
    expectFailure(processSegment(),
                  "there is no segment with key " + std::to_string(key_) + ": no device runs here");
}

TEST_F(DspToolTest, AForeignSegmentEndsWithOne) {
    publish(*plainImage());
    segment_->write({1, 0, {}});
    writeInput(noise(1, 100), 48000);
    expectFailure(processSegment(), "is not the DSP's image");
}

TEST_F(DspToolTest, AHeldLockEndsWithOne) {
    publish(*plainImage());
    writeInput(noise(1, 100), 48000);
    SharedLock lock(key_);
    ASSERT_TRUE(lock.lock());
    expectFailure(processSegment(), "the lock with key " + std::to_string(key_) + " is held");
    lock.unlock();
}

TEST_F(DspToolTest, AMissingFileEndsWithOne) {
    publish(*plainImage());
    expectFailure(processSegment(), path("in.wav") + ": there is no such file");
}

TEST_F(DspToolTest, AFileThatIsNoSoundEndsWithOne) {
    publish(*plainImage());
    std::ofstream(path("in.wav")) << "not a sound";
    expectFailure(processSegment(), path("in.wav"));
}

TEST_F(DspToolTest, AnInputThatIsNoFileEndsWithOneAtOnce) {
    publish(*plainImage());
    ASSERT_EQ(mkfifo(path("in.wav").c_str(), 0600), 0);
    expectFailure(processSegment(), path("in.wav") + ": is no regular file");
    std::filesystem::remove(path("in.wav"));
    std::filesystem::create_directory(path("in.wav"));
    expectFailure(processSegment(), path("in.wav") + ": is no regular file");
}

TEST_F(DspToolTest, AnImageThatIsNoFileEndsWithOneAtOnce) {
    writeInput(noise(1, 100), 48000);
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    std::filesystem::create_symlink("pipe", path("link"));
    for (const char* const name : {"pipe", "link"})
        expectFailure(process({"--image", path(name)}), path(name) + ": is no regular file");
}

TEST_F(DspToolTest, AnotherRateEndsWithOne) {
    publish(*plainImage());
    writeInput(noise(1, 100), 32000);
    expectFailure(processSegment(), "32000 Hz; the DSP runs at 44100, 48000, 88200");
}

TEST_F(DspToolTest, ASampleThatIsNoNumberEndsWithOne) {
    publish(*plainImage());
    Channels input = noise(2, 100);
    input[1][42] = std::numeric_limits<double>::quiet_NaN();
    writeInput(input, 48000);
    expectFailure(processSegment(), "frame 42 holds a sample that is not a number");
}

TEST_F(DspToolTest, AnEmptyFileEndsWithOne) {
    publish(*plainImage());
    writeInput({Channel()}, 48000);
    expectFailure(processSegment(), "holds no sound");
}

TEST_F(DspToolTest, AnUnwritableOutputEndsWithOne) {
    publish(*plainImage());
    writeInput(noise(1, 100), 48000);
    const auto result =
        tool({"process", path("in.wav"), path("nowhere/out.wav"), "--key", std::to_string(key_)});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.errors, HasSubstr(path("nowhere/out.wav") + ": cannot be written"));
}

TEST_F(DspToolTest, AFullDiskEndsWithOneAndKeepsTheOldFiles) {
    publish(*plainImage());
    writeInput(noise(1, 1000), 48000);
    std::ofstream(path("old")) << "old";
    const std::string key = " --key " + std::to_string(key_);
    for (const std::string verb : {"process in.wav old", "save old"}) {
        const auto result = toolOnAFullDisk(verb + key);
        EXPECT_EQ(result.exitCode, 1);
        EXPECT_THAT(result.errors, HasSubstr("vesk-dsp: old: cannot be written: "));
        EXPECT_EQ(contentOf("old"), "old");
        EXPECT_THAT(hiddenFiles(), IsEmpty());
    }
}

TEST_F(DspToolTest, AnOutputThatIsNoFileEndsWithOneAndStays) {
    publish(*plainImage());
    writeInput(noise(1, 100), 48000);
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    const std::string key = std::to_string(key_);
    for (const auto& result : {tool({"save", path("pipe"), "--key", key}),
                               tool({"process", path("in.wav"), path("pipe"), "--key", key})}) {
        expectFailure(result, path("pipe") + ": is no regular file");
        EXPECT_TRUE(std::filesystem::is_fifo(path("pipe")));
    }
}

TEST_F(DspToolTest, AnOutputLeavesForeignFilesAlone) {
    publish(*plainImage());
    writeInput(noise(1, 100), 48000);
    std::ofstream(path("out.wav.part")) << "foreign";
    EXPECT_EQ(processSegment().exitCode, 0);
    EXPECT_EQ(contentOf("out.wav.part"), "foreign");
}

TEST_F(DspToolTest, AnOutputThatIsALinkReplacesItsTarget) {
    publish(*plainImage());
    writeInput(noise(1, 100), 48000);
    std::filesystem::create_symlink("target.wav", path("out.wav"));
    EXPECT_EQ(processSegment().exitCode, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(path("out.wav")));
    EXPECT_EQ(dsp::readSound(path("target.wav")).channels, dsp::readSound(path("in.wav")).channels);
}

TEST_F(DspToolTest, AFileThatIsNoSavedImageEndsWithOne) {
    writeInput(noise(1, 100), 48000);
    expectFailure(process({"--image", path("in.wav")}), "is not a saved image: it has");
    std::ofstream(path("zeros")) << std::string(sizeof(DiracSegment), '\0');
    expectFailure(process({"--image", path("zeros")}), "begins with other bytes");
    expectFailure(process({"--image", path("missing")}), "No such file");
}

TEST_F(DspToolTest, HelpHasExamples) {
    const auto result = tool({"--help"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.output, AllOf(HasSubstr("Examples:"), HasSubstr("Exit codes:")));
}

class DspToolUsage : public testing::TestWithParam<std::vector<std::string>> {};

TEST_P(DspToolUsage, WrongUsageEndsWithTwo) {
    auto words = GetParam();
    words.insert(words.begin(), VESK_DSP_TOOL);
    const auto result = runProcess(words);
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_THAT(result.output, IsEmpty());
    EXPECT_THAT(result.errors, HasSubstr("Usage:"));
}

INSTANTIATE_TEST_SUITE_P(
    Each, DspToolUsage,
    testing::Values(std::vector<std::string>{}, std::vector<std::string>{"play"},
                    std::vector<std::string>{"process"},
                    std::vector<std::string>{"process", "a.wav"},
                    std::vector<std::string>{"process", "a.wav", "b.wav", "--rate", "32000"},
                    std::vector<std::string>{"process", "a.wav", "b.wav", "--key", "0"},
                    std::vector<std::string>{"process", "a.wav", "b.wav", "--key", "1", "--image",
                                             "c"},
                    std::vector<std::string>{"save"}));

}  // namespace
