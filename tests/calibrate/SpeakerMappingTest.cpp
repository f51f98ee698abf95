#include "calibrate/Errors.h"
#include "calibrate/SpeakerMapping.h"
#include "calibrate/support/SoundFiles.h"
#include "support/ScratchDirectory.h"

#include <gmock/gmock.h>

namespace calibrate {
namespace {

using testing::AllOf;
using testing::HasSubstr;

const std::vector<std::string> kStereo{"Front left", "Front right"};

FilterFile file(const std::string& name, double rate, const Samples& channels) {
    return {name, rate, channels};
}

/// What is said when `action` is refused.
template <class Action>
std::string refusal(Action action) {
    try {
        action();
    } catch (const BadInput& error) {
        return error.what();
    }
    return "";
}

TEST(MapInOrder, AChannelBelongsToTheSpeakerOfItsIndex) {
    const auto speakers = mapInOrder({file("a.wav", 48000, {{1}, {2}})}, kStereo);

    ASSERT_EQ(speakers.size(), 2U);
    EXPECT_EQ(speakers[0].at(0).taps, std::vector<double>{1});
    EXPECT_EQ(speakers[1].at(0).taps, std::vector<double>{2});
    EXPECT_EQ(speakers[1].at(0).origin, "a.wav channel 1");
}

TEST(MapInOrder, FilesAreTakenInOrder) {
    const auto speakers =
        mapInOrder({file("l.wav", 48000, {{1}}), file("r.wav", 48000, {{2}})}, kStereo);

    EXPECT_EQ(speakers[0].at(0).origin, "l.wav");
    EXPECT_EQ(speakers[1].at(0).origin, "r.wav");
}

TEST(MapInOrder, FilesAtAnotherRateAreASetOfTheirOwn) {
    const auto speakers = mapInOrder({file("48.wav", 48000, {{1}, {2}}),
                                      file("l44.wav", 44100, {{3}}), file("r44.wav", 44100, {{4}})},
                                     kStereo);

    ASSERT_EQ(speakers[1].size(), 2U);
    EXPECT_EQ(speakers[1][0].sampleRate, 44100);
    EXPECT_EQ(speakers[1][0].taps, std::vector<double>{4});
    EXPECT_EQ(speakers[1][1].taps, std::vector<double>{2});
}

TEST(MapInOrder, TooFewOrTooManyChannelsAreRefusedWithTheSpeakers) {
    const auto describesDevice =
        AllOf(HasSubstr("2 speakers"), HasSubstr("Front left"), HasSubstr("--speaker"));

    EXPECT_THAT(refusal([] { mapInOrder({file("a.wav", 48000, {{1}})}, kStereo); }),
                AllOf(HasSubstr("1 channel"), describesDevice));
    EXPECT_THAT(refusal([] {
                    mapInOrder({file("a.wav", 48000, {{1}, {1}, {1}})}, kStereo);
                }),
                AllOf(HasSubstr("3 channels"), describesDevice));
    EXPECT_THAT(refusal([] {
                    mapInOrder({file("a.wav", 48000, {{1}}), file("b.wav", 44100, {{1}})}, kStereo);
                }),
                HasSubstr("44.1 kHz"));
}

TEST(MapAssigned, SpeakersAreFoundByNameAndByIndex) {
    const auto speakers = mapAssigned(
        {{"1", file("r.wav", 48000, {{2}}), {}}, {"front LEFT", file("l.wav", 48000, {{1}}), {}}},
        kStereo);

    EXPECT_EQ(speakers[0].at(0).origin, "l.wav");
    EXPECT_EQ(speakers[1].at(0).origin, "r.wav");
}

TEST(MapAssigned, ANameGoesBeforeAnIndex) {
    const auto speakers = mapAssigned({{"1", file("a.wav", 48000, {{1}}), {}}}, {"1", "2"});

    EXPECT_EQ(speakers[0].size(), 1U);
    EXPECT_EQ(speakers[1].size(), 0U);
}

TEST(MapAssigned, AChannelIsTakenFromAFile) {
    const auto speakers = mapAssigned({{"0", file("a.wav", 48000, {{1}, {2}, {3}}), 2}}, kStereo);

    EXPECT_EQ(speakers[0].at(0).taps, std::vector<double>{3});
    EXPECT_TRUE(speakers[1].empty());
}

TEST(MapAssigned, ASpeakerMayHaveAFilterForEachRate) {
    const auto speakers = mapAssigned(
        {{"0", file("a.wav", 48000, {{1}}), {}}, {"0", file("b.wav", 44100, {{2}}), {}}}, kStereo);

    EXPECT_EQ(speakers[0].size(), 2U);
}

TEST(MapAssigned, WhatCannotBeMeantIsRefused) {
    const auto assign = [](const std::vector<SpeakerAssignment>& assignments,
                           const std::vector<std::string>& names) {
        return refusal([&] { mapAssigned(assignments, names); });
    };
    const auto mono = file("a.wav", 48000, {{1}});
    const auto stereo = file("a.wav", 48000, {{1}, {2}});

    EXPECT_THAT(assign({{"Centre", mono, {}}}, kStereo),
                AllOf(HasSubstr("Centre"), HasSubstr("1 \"Front right\"")));
    EXPECT_THAT(assign({{"2", mono, {}}}, kStereo), HasSubstr("no such speaker"));
    EXPECT_THAT(assign({{"Surround", mono, {}}}, {"Surround", "Surround"}),
                HasSubstr("give the index"));
    EXPECT_THAT(assign({{"0", stereo, {}}}, kStereo), HasSubstr("FILE:0 to FILE:1"));
    EXPECT_THAT(assign({{"0", stereo, 2}}, kStereo), HasSubstr("no channel 2"));
    EXPECT_THAT(assign({{"0", mono, {}}, {"Front left", mono, {}}}, kStereo),
                AllOf(HasSubstr("two filters"), HasSubstr("48 kHz")));
}

TEST(SpeakerArgument, NamesASpeakerAFileAndPerhapsAChannel) {
    const auto plain = parseSpeakerArgument("Front left=dir/a=b.wav");
    EXPECT_EQ(plain.speaker, "Front left");
    EXPECT_EQ(plain.path, "dir/a=b.wav");
    EXPECT_FALSE(plain.channel);

    const auto channel = parseSpeakerArgument("0=a.wav:12");
    EXPECT_EQ(channel.path, "a.wav");
    EXPECT_EQ(channel.channel, 12U);

    EXPECT_EQ(parseSpeakerArgument("0=a:b.wav").path, "a:b.wav");
}

TEST(SpeakerArgument, AFileWhoseNameEndsLikeAChannelIsFound) {
    const ScratchDirectory scratch;
    const auto path = scratch.path() / "a:1";
    writeText(path, "1");

    const auto argument = parseSpeakerArgument("0=" + path.string());
    EXPECT_EQ(argument.path, path);
    EXPECT_FALSE(argument.channel);
}

TEST(SpeakerArgument, WithoutASpeakerOrAFileIsRefused) {
    for (const char* text : {"a.wav", "=a.wav", "left=", ""})
        EXPECT_THAT(refusal([&] { parseSpeakerArgument(text); }), HasSubstr("SPEAKER=FILE"));
}

}  // namespace
}  // namespace calibrate
