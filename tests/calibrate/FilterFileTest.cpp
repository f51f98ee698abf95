#include "calibrate/Errors.h"
#include "calibrate/FilterFile.h"
#include "calibrate/support/SoundFiles.h"
#include "support/ScratchDirectory.h"

#include <gmock/gmock.h>
#include <sndfile.h>

#include <cmath>
#include <limits>

namespace calibrate {
namespace {

using testing::AllOf;
using testing::HasSubstr;

class FilterFileTest : public testing::Test {
protected:
    std::filesystem::path path(const std::string& name) const { return scratch_.path() / name; }

    FilterFile readHeaderless(const std::string& name, std::size_t channels = 1) const {
        return readFilterFile(path(name), {48000, channels});
    }

    /// What is said about a file that is refused.
    std::string refusal(const std::string& name,
                        const HeaderlessFormat& format = {48000, 1}) const {
        try {
            readFilterFile(path(name), format);
        } catch (const BadInput& error) {
            return error.what();
        }
        return "";
    }

private:
    ScratchDirectory scratch_;
};

TEST_F(FilterFileTest, FloatsOfAWavFileAreExact) {
    const Samples channels{{0.1F, -1.5F, std::numeric_limits<float>::denorm_min()}, {0, 1, 3e8F}};
    writeWav(path("a.wav"), 44100, channels);

    const auto file = readFilterFile(path("a.wav"), {});
    EXPECT_EQ(file.sampleRate, 44100);
    EXPECT_EQ(file.channels, channels);
    EXPECT_EQ(file.taps(), 3U);
}

TEST_F(FilterFileTest, DoublesOfAWavFileAreExact) {
    const Samples channels{{0.1, 1.0 / 3}};
    writeSoundFile(path("a.wav"), 48000, channels, SF_FORMAT_WAV | SF_FORMAT_DOUBLE);

    EXPECT_EQ(readFilterFile(path("a.wav"), {}).channels, channels);
}

TEST_F(FilterFileTest, IntegersHaveAFullScaleOfOne) {
    for (const int format : {SF_FORMAT_PCM_16, SF_FORMAT_PCM_24, SF_FORMAT_PCM_32}) {
        writeSoundFile(path("a.wav"), 96000, {{0.5, -0.25}, {-1, 0}}, SF_FORMAT_WAV | format);

        const auto file = readFilterFile(path("a.wav"), {});
        EXPECT_NEAR(file.channels[0][0], 0.5, 1e-4);
        EXPECT_NEAR(file.channels[0][1], -0.25, 1e-4);
        EXPECT_NEAR(file.channels[1][0], -1, 1e-4);
    }
}

TEST_F(FilterFileTest, OtherContainersAreReadWhateverTheCaseOfTheExtension) {
    writeSoundFile(path("a.FLAC"), 48000, {{0.5, 0}}, SF_FORMAT_FLAC | SF_FORMAT_PCM_24);
    writeSoundFile(path("a.aiff"), 48000, {{0.5, 0}}, SF_FORMAT_AIFF | SF_FORMAT_FLOAT);
    writeSoundFile(path("a.w64"), 48000, {{0.5, 0}}, SF_FORMAT_W64 | SF_FORMAT_FLOAT);

    for (const char* name : {"a.FLAC", "a.aiff", "a.w64"})
        EXPECT_NEAR(readFilterFile(path(name), {}).channels.at(0).at(0), 0.5, 1e-6) << name;
}

TEST_F(FilterFileTest, RawFloatsAreLittleEndianAndExact) {
    writeText(path("a.f32"), std::string("\x00\x00\x80\x3f\x00\x00\x00\xc0", 8));

    const auto file = readHeaderless("a.f32");
    EXPECT_EQ(file.sampleRate, 48000);
    EXPECT_EQ(file.channels, (Samples{{1, -2}}));
}

TEST_F(FilterFileTest, RawChannelsAreInterleaved) {
    writeRaw(path("a.raw"), {1, 2, 3, 4, 5, 6});
    writeRaw(path("a.bin"), {1, 2, 3, 4, 5, 6});

    EXPECT_EQ(readHeaderless("a.raw", 2).channels, (Samples{{1, 3, 5}, {2, 4, 6}}));
    EXPECT_EQ(readHeaderless("a.bin", 3).channels, (Samples{{1, 4}, {2, 5}, {3, 6}}));
}

TEST_F(FilterFileTest, TextHoldsANumberOnEachLine) {
    writeText(path("a.txt"), "# made by hand\r\n\r\n* a comment\n 0.5\r\n-1e-3\t\n+2\n; end\n3");

    EXPECT_EQ(readHeaderless("a.txt").channels, (Samples{{0.5, -1e-3, 2, 3}}));
}

TEST_F(FilterFileTest, TextThatIsNoNumberIsRefusedWithItsLine) {
    writeText(path("a.txt"), "1\n2,5\n");
    EXPECT_THAT(refusal("a.txt"),
                AllOf(HasSubstr("a.txt"), HasSubstr("line 2"), HasSubstr("\"2,5\"")));

    writeText(path("b.txt"), "1 2\n");
    EXPECT_THAT(refusal("b.txt"), HasSubstr("line 1"));
}

TEST_F(FilterFileTest, AFileWithoutAHeaderNeedsTheRate) {
    writeRaw(path("a.f32"), {1});
    writeText(path("a.txt"), "1");

    EXPECT_THAT(refusal("a.f32", {}), AllOf(HasSubstr("a.f32"), HasSubstr("--rate")));
    EXPECT_THAT(refusal("a.txt", {}), AllOf(HasSubstr("a.txt"), HasSubstr("--rate")));
}

TEST_F(FilterFileTest, AnImplausibleRateIsRefused) {
    writeRaw(path("a.f32"), {1});

    EXPECT_THAT(refusal("a.f32", {44.1, 1}), HasSubstr("44.1 Hz"));
    EXPECT_THAT(refusal("a.f32", {1e9, 1}), HasSubstr("sample rate"));
    EXPECT_THAT(refusal("a.f32", {std::nan(""), 1}), HasSubstr("sample rate"));
}

TEST_F(FilterFileTest, AHalfFloatAtTheEndIsRefused) {
    writeText(path("a.f32"), "12345");
    EXPECT_THAT(refusal("a.f32"), HasSubstr("5 bytes"));

    writeRaw(path("b.f32"), {1, 2, 3});
    EXPECT_THAT(refusal("b.f32", {48000, 2}), HasSubstr("--channels"));
}

TEST_F(FilterFileTest, TapsThatAreNoNumbersAreRefusedWithTheirPlace) {
    constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
    constexpr float kInfinity = std::numeric_limits<float>::infinity();
    writeRaw(path("nan.f32"), {1, 1, 1, kNaN});
    writeRaw(path("inf.f32"), {-kInfinity});
    writeWav(path("nan.wav"), 48000, {{1, 2}, {3, static_cast<double>(kNaN)}});
    writeText(path("large.txt"), "1e300");

    EXPECT_THAT(refusal("nan.f32", {48000, 2}), HasSubstr("tap 1 of channel 1"));
    EXPECT_THAT(refusal("inf.f32"), HasSubstr("tap 0 of channel 0"));
    EXPECT_THAT(refusal("nan.wav"), HasSubstr("tap 1 of channel 1"));
    EXPECT_THAT(refusal("large.txt"), HasSubstr("tap 0"));
}

TEST_F(FilterFileTest, AnEmptyFileIsRefused) {
    writeText(path("a.f32"), "");
    writeText(path("a.txt"), "# nothing\n");
    writeText(path("empty.wav"), "");
    writeWav(path("header.wav"), 48000, {{}});

    EXPECT_THAT(refusal("a.f32"), HasSubstr("no taps"));
    EXPECT_THAT(refusal("a.txt"), HasSubstr("no taps"));
    EXPECT_THAT(refusal("empty.wav"), HasSubstr("no sound file"));
    EXPECT_THAT(refusal("header.wav"), HasSubstr("no taps"));
}

TEST_F(FilterFileTest, WhatIsNoFileIsRefused) {
    std::filesystem::create_directory(path("directory.wav"));
    EXPECT_THAT(refusal("missing.wav"), AllOf(HasSubstr("missing.wav"), HasSubstr("no such file")));
    EXPECT_THAT(refusal("directory.wav"), HasSubstr("is a directory"));
    std::filesystem::create_symlink("/dev/zero", path("endless.f32"));
    EXPECT_THAT(refusal("endless.f32"), HasSubstr("no regular file"));
}

TEST_F(FilterFileTest, AnUnknownExtensionIsRefusedWithTheKnownOnes) {
    writeText(path("a.mp3"), "1");
    writeText(path("a"), "1");

    EXPECT_THAT(refusal("a.mp3"), AllOf(HasSubstr(".wav"), HasSubstr(".f32"), HasSubstr(".txt")));
    EXPECT_THAT(refusal("a"), HasSubstr("extension"));
}

TEST_F(FilterFileTest, WhatIsNoSoundFileIsRefused) {
    writeText(path("a.wav"), "RIFF, or so it says");

    EXPECT_THAT(refusal("a.wav"), AllOf(HasSubstr("a.wav"), HasSubstr("no sound file")));
}

TEST_F(FilterFileTest, AFileFarBeyondAnyFilterIsRefused) {
    writeText(path("a.f32"), "");
    std::filesystem::resize_file(path("a.f32"), std::uintmax_t{1} << 32);

    EXPECT_THAT(refusal("a.f32"), HasSubstr("no correction filter"));
}

TEST_F(FilterFileTest, AControlCharacterInANameDoesNotReachTheTerminal) {
    EXPECT_THAT(refusal("a\x1b[2J.wav"), HasSubstr("a?[2J.wav"));
}

class FilterFileDataTest : public testing::Test {
protected:
    void SetUp() override {
        if (testData().empty())
            GTEST_SKIP() << "no measured data here";
    }

    static FilterFile read(const std::string& name) {
        return readFilterFile(testData() / "filters" / name, {48000, 1});
    }
};

TEST_F(FilterFileDataTest, ACorrectionOfALivingRoomIsReadWhole) {
    const auto file = read("living-room-48k-1000.wav");
    EXPECT_EQ(file.sampleRate, 48000);
    EXPECT_EQ(file.channels.size(), 2U);
    EXPECT_EQ(file.taps(), 1000U);
}

TEST_F(FilterFileDataTest, TheSameFilterIsTheSameInBothFormats) {
    const auto stereo = read("living-room-48k-1000.wav");

    EXPECT_EQ(stereo.channels[0], read("living-room-48k-1000-left.f32").channels[0]);
    EXPECT_EQ(stereo.channels[1], read("living-room-48k-1000-right.f32").channels[0]);
}

}  // namespace
}  // namespace calibrate
