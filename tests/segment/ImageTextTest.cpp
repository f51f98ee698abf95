#include "segment/ImageText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace segment {
namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

std::string printed(const DiracConfiguration& image) {
    std::ostringstream out;
    printImage(out, image);
    return out.str();
}

TEST(ImageDigest, DoesNotDependOnTheTimeStamp) {
    DiracConfiguration a;
    DiracConfiguration b;
    a.timeStamp = 1;
    b.timeStamp = 2;
    EXPECT_EQ(imageDigest(a), imageDigest(b));
}

TEST(ImageDigest, DependsOnTheFirstAndTheLastByteOfTheRest) {
    const auto digest = imageDigest({});
    DiracConfiguration image;
    image.speakerCount = 1;
    EXPECT_NE(imageDigest(image), digest);
    image = {};
    image.padding[2] = 1;
    EXPECT_NE(imageDigest(image), digest);
}

TEST(ImageDigest, IsWrittenWithSixteenDigits) {
    EXPECT_THAT(imageDigestText({}), testing::MatchesRegex("[0-9a-f]{16}"));
}

TEST(TimeStampText, IsUniversalTimeWithMilliseconds) {
    EXPECT_EQ(timeStampText(0), "1970-01-01 00:00:00.000 UTC");
    EXPECT_EQ(timeStampText(1714564800007), "2024-05-01 12:00:00.007 UTC");
    EXPECT_EQ(timeStampText(-1), "1969-12-31 23:59:59.999 UTC");
}

TEST(PrintImage, DefaultImageHasNoChannels) {
    EXPECT_THAT(printed({}), AllOf(ContainsRegex("bypass +on"), ContainsRegex("speakers +0"),
                                   ContainsRegex("bass control +off")));
}

TEST(PrintImage, ShowsSpeakersAndTheirChannels) {
    DiracConfiguration image;
    image.bypass = 0;
    image.speakerCount = 2;
    image.speakers[1] = {4, 1};
    image.groups[0][0].filterEnabled = 1;
    image.groups[0][0].tapCount = 1000;
    image.groups[0][0].biquadCount = 30;
    image.groups[0][1].linearEnabled = 1;
    image.groups[0][1].delay = 1.5;
    image.groups[0][1].gain = -3;
    EXPECT_THAT(printed(image),
                AllOf(ContainsRegex("bypass +off"), HasSubstr("1: type 4, group 1"),
                      ContainsRegex(" 0 +on +1000 +30 +off +- +-\n"),
                      ContainsRegex(" 1 +off +1 +0 +on +1.5 +-3\n"), HasSubstr("44100 Hz")));
}

TEST(PrintImage, ShowsAFilteredChannelWithoutSpeaker) {
    DiracConfiguration image;
    image.groups[1][9].filterEnabled = 1;
    EXPECT_THAT(printed(image), ContainsRegex(" 9 +on +1 +0 +off"));
}

TEST(PrintImage, ShowsSubSamplerSizesAndBassControl) {
    DiracConfiguration image;
    image.subSamplerSizes[2] = 1020;
    image.bassControlPresent = 1;
    auto& sections = image.bassControl[0];
    sections[0].cellCount = 1;
    sections[0].cells[0].outputIdx = 3;
    sections[0].cells[0].biquadCount = 6;
    sections[2].sectionIdx = 2;
    sections[2].type = 1;
    sections[2].cellCount = 1;
    sections[2].cells[0].delay = 12;
    sections[2].cells[0].gain = -4.5;
    EXPECT_THAT(printed(image),
                AllOf(HasSubstr("176400 Hz: 1020 bytes"), HasSubstr("0 -> 3: 6 biquads"),
                      HasSubstr("section 2, delay/gain, 1 cells"),
                      HasSubstr("0 -> 0: delay 12 samples, gain -4.5 dB")));
}

TEST(PrintImage, MarksCountsThatTheImageCannotHold) {
    DiracConfiguration image;
    image.speakerCount = 0xffffffff;
    image.groups[0][0].tapCount = 5000;
    image.bassControlPresent = 1;
    image.bassControl[0][0].cellCount = 77;
    image.bassControl[0][0].cells[0].biquadCount = 99;
    EXPECT_THAT(printed(image), AllOf(HasSubstr("4294967295!"), HasSubstr("5000!"),
                                      HasSubstr("77! cells"), HasSubstr("99! biquads")));
}

TEST(ImageSummary, IsOneLine) {
    DiracConfiguration image;
    image.bypass = 0;
    image.speakerCount = 2;
    image.groups[0][0].filterEnabled = 1;
    EXPECT_THAT(
        imageSummary(image),
        AllOf(HasSubstr("bypass off"), HasSubstr("speakers 2"), HasSubstr("filtered channels 1"),
              HasSubstr(imageDigestText(image)), Not(HasSubstr("\n"))));
}

}  // namespace
}  // namespace segment
