#include "dsp/Correction.h"
#include "dsp/TestImage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <limits>

namespace dsp {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinity = std::numeric_limits<float>::infinity();

Correction read(const DiracConfiguration& image, unsigned rate = 48000, std::size_t channels = 2) {
    return readCorrection(image, *streamRate(rate), channels);
}

struct Damage {
    const char* name;
    std::function<void(DiracConfiguration&)> damage;
    const char* problem;
};

void PrintTo(const Damage& damage, std::ostream* out) {
    *out << damage.name;
}

class BrokenChannels : public testing::TestWithParam<Damage> {};

TEST_P(BrokenChannels, AreLeftUncorrectedAndReported) {
    const auto image = filterImage(2, 100, 5);
    GetParam().damage(*image);
    const Correction correction = read(*image);
    EXPECT_FALSE(correction.isBypassed);
    EXPECT_TRUE(correction.channels[0].isFiltered);
    EXPECT_FALSE(correction.channels[1].isFiltered);
    EXPECT_EQ(correction.channels[1].factor, 1);
    EXPECT_EQ(correction.channels[1].delay, 0U);
    EXPECT_THAT(correction.problems,
                ElementsAre(std::string("channel 1 is left uncorrected: ") + GetParam().problem));
}

auto& channel(DiracConfiguration& image) {
    return image.groups[0][1];
}

void setLinear(DiracConfiguration& image, float delay, float gain) {
    channel(image).linearEnabled = 1;
    channel(image).delay = delay;
    channel(image).gain = gain;
}

INSTANTIATE_TEST_SUITE_P(
    Each, BrokenChannels,
    testing::Values(
        Damage{"NanTap", [](auto& image) { channel(image).taps[77] = kNan; },
               "tap 77 is not a number"},
        Damage{"InfiniteTap", [](auto& image) { channel(image).taps[0] = kInfinity; },
               "tap 0 is not a number"},
        Damage{"TooManyTaps", [](auto& image) { channel(image).tapCount = 1025; },
               "1025 taps, the image holds 1024"},
        Damage{"TooManyBiquads", [](auto& image) { channel(image).biquadCount = 31; },
               "31 biquads, the image holds 30"},
        Damage{"NanBiquad", [](auto& image) { channel(image).biquads[2].b1 = kNan; },
               "biquad 2 is not a number"},
        Damage{"UnstableRadius", [](auto& image) { channel(image).biquads[4].a2 = 1.0F; },
               "biquad 4 is unstable"},
        Damage{"UnstableRealPole",
               [](auto& image) {
                   channel(image).biquads[0] = {-2.0F, 0.99F, 1, 0};
               },
               "biquad 0 is unstable"},
        Damage{"NanDelay", [](auto& image) { setLinear(image, kNan, 0); },
               "a delay that is not between 0 and 1000 ms"},
        Damage{"NegativeDelay", [](auto& image) { setLinear(image, -1, 0); },
               "a delay that is not between 0 and 1000 ms"},
        Damage{"EndlessDelay", [](auto& image) { setLinear(image, 1001, 0); },
               "a delay that is not between 0 and 1000 ms"},
        Damage{"NanGain", [](auto& image) { setLinear(image, 1, kNan); },
               "the gain is not a number"},
        Damage{"HugeGain", [](auto& image) { setLinear(image, 1, 61); }, "a gain above 60 dB"}),
    [](const auto& test) { return test.param.name; });

TEST(Correction, ValuesBeyondTheCountsDoNotMatter) {
    const auto image = filterImage(2, 100, 5);
    image->groups[0][1].taps[100] = kNan;
    image->groups[0][1].biquads[5].a2 = 7;
    EXPECT_THAT(read(*image).problems, IsEmpty());
}

TEST(Correction, ADisabledFilterIsNotLookedAt) {
    const auto image = filterImage(2, 100, 5);
    image->groups[0][1].taps[0] = kNan;
    image->groups[0][1].filterEnabled = 0;
    EXPECT_THAT(read(*image).problems, IsEmpty());
}

TEST(Correction, SilenceIsAGain) {
    const auto image = plainImage();
    setLinear(*image, 0, -500);
    EXPECT_LT(read(*image).channels[1].factor, 1e-20);
}

TEST(Correction, DelayIsRoundedToFramesOfTheStream) {
    const auto image = plainImage();
    image->groups[1][1].linearEnabled = 1;
    image->groups[1][1].delay = 1.0F;
    EXPECT_EQ(read(*image, 44100).channels[1].delay, 44U);
    EXPECT_EQ(read(*image, 176400).channels[1].delay, 176U);
}

TEST(Correction, TheLongestDelayIsThatOfTheChannelsBehindThoseOfBassControlInSeries) {
    const auto image = plainImage();
    EXPECT_EQ(longestDelay(read(*image), *streamRate(48000)), 0U);
    image->groups[0][0].linearEnabled = image->groups[0][1].linearEnabled = 1;
    image->groups[0][0].delay = 20;
    image->groups[0][1].delay = 10;
    EXPECT_EQ(longestDelay(read(*image), *streamRate(48000)), 960U);
    addBassControl(image.get());
    image->bassControl[0][4] = image->bassControl[0][2];
    EXPECT_EQ(longestDelay(read(*image), *streamRate(48000)), 960U + 51U + 51U);
    EXPECT_EQ(longestDelay(read(*image, 192000), *streamRate(192000)), 4 * (960U + 51U + 51U));
}

TEST(Correction, EachRateHasItsGroup) {
    const auto image = filterImage(1, 10, 0);
    image->groups[0][0].tapCount = 3;
    image->groups[1][0].tapCount = 5;
    for (const unsigned rate : {48000U, 96000U, 192000U})
        EXPECT_THAT(read(*image, rate).channels[0].taps, SizeIs(3));
    for (const unsigned rate : {44100U, 88200U, 176400U})
        EXPECT_THAT(read(*image, rate).channels[0].taps, SizeIs(5));
}

TEST(Correction, BypassAsksForNothing) {
    const auto image = filterImage(2, 100, 5);
    image->bypass = 1;
    image->groups[0][0].taps[0] = kNan;
    const Correction correction = read(*image);
    EXPECT_TRUE(correction.isBypassed);
    EXPECT_THAT(correction.problems, IsEmpty());
}

TEST(Correction, BrokenBassControlIsLeftOutAndReported) {
    const auto image = filterImage(2, 100, 5);
    addBassControl(image.get());
    image->bassControl[0][0].cells[3].biquads[1].a2 = -1.5F;
    const Correction correction = read(*image);
    EXPECT_THAT(correction.bassControl, IsEmpty());
    EXPECT_TRUE(correction.channels[0].isFiltered);
    EXPECT_THAT(correction.problems,
                ElementsAre("bass control is left out: section 0: cell 3: biquad 1 is unstable"));
    EXPECT_THAT(read(*image, 44100).problems, IsEmpty());
}

class BrokenCells : public testing::TestWithParam<Damage> {};

TEST_P(BrokenCells, AreNamed) {
    const auto image = plainImage();
    addBassControl(image.get());
    GetParam().damage(*image);
    EXPECT_THAT(read(*image).problems,
                ElementsAre(std::string("bass control is left out: ") + GetParam().problem));
}

INSTANTIATE_TEST_SUITE_P(
    Each, BrokenCells,
    testing::Values(
        Damage{"TooManyCells", [](auto& image) { image.bassControl[0][2].cellCount = 6; },
               "section 2: 6 cells, the image holds 5"},
        Damage{"TooManyBiquads",
               [](auto& image) { image.bassControl[0][0].cells[1].biquadCount = 31; },
               "section 0: cell 1: 31 biquads, the image holds 30"},
        Damage{"FarLine", [](auto& image) { image.bassControl[0][0].cells[1].outputIdx = 32; },
               "section 0: cell 1: input or output 32, the most is 31"},
        Damage{"NegativeDelay", [](auto& image) { image.bassControl[0][2].cells[0].delay = -1; },
               "section 2: cell 0: a delay that is not between 0 and 1000 ms"},
        Damage{"NanGain", [](auto& image) { image.bassControl[0][2].cells[2].gain = kNan; },
               "section 2: cell 2: the gain is not a number"}),
    [](const auto& test) { return test.param.name; });

TEST(Correction, APlaceOfTheMatrixHasOneCell) {
    const auto image = plainImage();
    addBassControl(image.get());
    auto& section = image->bassControl[0][2];
    section.cells[3] = section.cells[1];
    section.cells[3].delay = 99;
    const Correction correction = read(*image);
    ASSERT_THAT(correction.bassControl, SizeIs(2));
    ASSERT_THAT(correction.bassControl[1], SizeIs(3));
    EXPECT_EQ(correction.bassControl[1].back().delay, 99U);
}

TEST(Correction, AbsentBassControlIsNotLookedAt) {
    const auto image = plainImage();
    addBassControl(image.get());
    image->bassControl[0][0].cellCount = 99;
    image->bassControlPresent = 0;
    EXPECT_THAT(read(*image).problems, IsEmpty());
}

class BrokenSubSamplerData : public testing::TestWithParam<Damage> {};

TEST_P(BrokenSubSamplerData, BypassTheImageAtThatRateOnly) {
    const auto image = filterImage(2, 100, 5);
    GetParam().damage(*image);
    const Correction correction = read(*image, 96000);
    EXPECT_TRUE(correction.isBypassed);
    EXPECT_THAT(correction.problems,
                ElementsAre(std::string("no correction at 96000 Hz, for want of sub-sampler "
                                        "data: ") +
                            GetParam().problem));
    for (const unsigned rate : {44100U, 48000U, 88200U, 192000U}) {
        EXPECT_FALSE(read(*image, rate).isBypassed);
        EXPECT_THAT(read(*image, rate).problems, IsEmpty());
    }
}

void setTap(DiracConfiguration& image, std::size_t tap, float value) {
    std::memcpy(image.subSamplerData[1].data() + tap * sizeof value, &value, sizeof value);
}

INSTANTIATE_TEST_SUITE_P(
    Each, BrokenSubSamplerData,
    testing::Values(
        Damage{"None", [](auto& image) { image.subSamplerSizes[1] = 0; }, "there are none"},
        Damage{"Crooked", [](auto& image) { image.subSamplerSizes[1] = 1019; },
               "1019 bytes are no low-pass"},
        Damage{"TooLong", [](auto& image) { image.subSamplerSizes[1] = 1024; },
               "1024 bytes are no low-pass"},
        Damage{"BeyondTheBlock", [](auto& image) { image.subSamplerSizes[1] = 4000000000; },
               "4000000000 bytes are no low-pass"},
        Damage{"Nan", [](auto& image) { setTap(image, 127, kNan); },
               "they are not a symmetric low-pass with a gain of 1"},
        Damage{"Lopsided", [](auto& image) { setTap(image, 3, 0.1F); },
               "they are not a symmetric low-pass with a gain of 1"},
        Damage{"Loud", [](auto& image) { setTap(image, 127, 2.0F); },
               "they are not a symmetric low-pass with a gain of 1"}),
    [](const auto& test) { return test.param.name; });

TEST(Correction, ChannelsBeyondTheImageAreLeftAlone) {
    const auto image = filterImage(10, 10, 1);
    const Correction correction = read(*image, 48000, 12);
    ASSERT_THAT(correction.channels, SizeIs(12));
    EXPECT_TRUE(correction.channels[9].isFiltered);
    EXPECT_FALSE(correction.channels[10].isFiltered);
}

TEST(StreamRate, OtherRatesAreUnknown) {
    for (const unsigned rate : {0U, 8000U, 32000U, 64000U, 384000U})
        EXPECT_FALSE(streamRate(rate)) << rate;
}

}  // namespace
}  // namespace dsp
