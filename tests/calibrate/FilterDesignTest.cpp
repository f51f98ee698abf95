#include "calibrate/Errors.h"
#include "calibrate/FilterDesign.h"
#include "calibrate/support/SoundFiles.h"

#include <gmock/gmock.h>

#include <cmath>

namespace calibrate {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const Variant k48{0, 48000, 1000};
const Variant k44{1, 44100, 1000};
const std::vector<std::string> kStereo{"Front left", "Front right"};

SpeakerFilter filter(double rate, const std::vector<double>& taps) {
    return {rate, taps, "a.wav"};
}

template <class Action>
std::string refusal(Action action) {
    try {
        action();
    } catch (const BadInput& error) {
        return error.what();
    }
    return "";
}

TEST(FilterDesign, AFilterAtTheRateOfAVariantIsTakenAsItIs) {
    const std::vector<double> taps{0.1F, -0.7F, 1e-30F};
    const auto design = designFilters({{filter(48000, taps)}}, {"Mono"}, {k48});

    EXPECT_THAT(design.variants.at(0).taps.at(0), ElementsAre(0.1F, -0.7F, 1e-30F));
    EXPECT_FALSE(design.variants[0].conversion);
    EXPECT_THAT(design.warnings, IsEmpty());
}

TEST(FilterDesign, OtherVariantsAreResampled) {
    const auto design =
        designFilters({{filter(48000, decayingFilter(1000, 4))}}, {"Mono"}, {k48, k44});

    ASSERT_TRUE(design.variants.at(1).conversion);
    EXPECT_THAT(design.variants[1].conversion->fromRates, ElementsAre(48000));
    EXPECT_LE(design.variants[1].conversion->deviation, 0.01);
    EXPECT_LT(design.variants[1].taps[0].size(), 1000U);
    EXPECT_THAT(design.warnings, IsEmpty());
}

TEST(FilterDesign, AnExactFilterWinsOverResampling) {
    const auto design = designFilters(
        {{filter(96000, decayingFilter(500, 1)), filter(48000, {1, 2}), filter(44100, {3, 4})}},
        {"Mono"}, {k48, k44});

    EXPECT_THAT(design.variants[0].taps[0], ElementsAre(1, 2));
    EXPECT_THAT(design.variants[1].taps[0], ElementsAre(3, 4));
}

TEST(FilterDesign, TheHighestRateIsResampled) {
    const Variant k32{2, 32000, 1000};
    const auto design = designFilters(
        {{filter(44100, decayingFilter(100, 1)), filter(96000, decayingFilter(200, 1))}}, {"Mono"},
        {k32});

    EXPECT_THAT(design.variants[0].conversion->fromRates, ElementsAre(96000));
}

TEST(FilterDesign, ASpeakerWithoutAFilterIsDelayedWithTheOthers) {
    const auto design =
        designFilters({{filter(48000, decayingFilter(300, 4))}, {}}, kStereo, {k48, k44});

    EXPECT_THAT(design.variants[0].taps[1], ElementsAre(1));
    const std::size_t delay = design.variants[1].conversion->delay;
    ASSERT_GT(delay, 0U);
    std::vector<float> delayed(delay + 1, 0.0F);
    delayed.back() = 1;
    EXPECT_EQ(design.variants[1].taps[1], delayed);
}

TEST(FilterDesign, NoFilterIsDelayedBesideAnExactOne) {
    const auto design = designFilters(
        {{filter(48000, decayingFilter(300, 4))}, {filter(44100, {1})}}, kStereo, {k44});

    EXPECT_EQ(design.variants[0].conversion->delay, 0U);
    EXPECT_THAT(design.warnings, ElementsAre(AllOf(HasSubstr("44.1 kHz"), HasSubstr("deviates"))));
}

TEST(FilterDesign, ATooLongFileIsRefusedWithItsNameTapsAndCapacity) {
    const FilterFile file{"long.wav", 48000, {std::vector<double>(1001, 0.1)}};

    EXPECT_THAT(refusal([&] {
                    checkCapacity(file, {k48, k44});
                }),
                AllOf(HasSubstr("long.wav"), HasSubstr("1001 taps"), HasSubstr("holds 1000"),
                      HasSubstr("shorten the filter to 1000 taps (20.83 ms)")));
    EXPECT_EQ(refusal([&] { checkCapacity(file, {k44}); }), "");
}

TEST(FilterDesign, AsManyTapsAsTheDeviceHoldsFit) {
    const FilterFile file{"full.wav", 48000, {std::vector<double>(1000, 0.1)}};

    EXPECT_EQ(refusal([&] { checkCapacity(file, {k48}); }), "");
}

TEST(FilterDesign, ZerosAtTheEndDoNotCount) {
    std::vector<double> padded(5000, 0.0);
    padded[0] = 1;
    padded[999] = 0.5;
    const FilterFile file{"padded.wav", 48000, {padded}};

    EXPECT_EQ(refusal([&] { checkCapacity(file, {k48}); }), "");
    const auto design = designFilters({{filter(48000, padded)}}, {"Mono"}, {k48});
    EXPECT_EQ(design.variants[0].taps[0].size(), 1000U);
    EXPECT_EQ(design.variants[0].taps[0].back(), 0.5F);
}

TEST(FilterDesign, AShortTailThatIsCutIsWorthAWarning) {
    auto taps = decayingFilter(1000, 9);
    taps[990] = 0.001;
    const auto design = designFilters({{filter(44100, taps)}}, {"Mono"}, {k48, k44});

    EXPECT_EQ(design.variants[0].taps[0].size(), 1000U);
    EXPECT_THAT(design.warnings, testing::Contains(AllOf(HasSubstr("1000 taps"), HasSubstr("cut"),
                                                         HasSubstr("dB of its energy"))));
}

TEST(FilterDesign, ALongTailIsRefused) {
    std::vector<double> taps(2500, 0.0);
    taps[0] = 1;
    taps[2400] = 0.5;

    EXPECT_THAT(refusal([&] { designFilters({{filter(96000, taps)}}, {"Mono"}, {k48}); }),
                AllOf(HasSubstr("2401 taps at 96 kHz"), HasSubstr("holds 1000 at 48 kHz"),
                      HasSubstr("2000 taps")));
}

TEST(FilterDesign, AFilterFarTooLongIsRefusedAtOnce) {
    std::vector<double> taps(4'000'000, 0.0);
    taps[0] = 1;
    taps.back() = 1e-6;

    EXPECT_THAT(refusal([&] { designFilters({{filter(96000, taps)}}, {"Mono"}, {k48}); }),
                HasSubstr("4000000 taps"));
}

TEST(FilterDesign, AVeryLongFilterIsNotResampled) {
    const Variant large{0, 48000, 65536};

    EXPECT_THAT(refusal([&] {
                    designFilters({{filter(44100, decayingFilter(20000, 1))}}, {"Mono"}, {large});
                }),
                HasSubstr("give one at 48 kHz"));
}

TEST(FilterDesign, ARateBelowTheVariantsIsRefused) {
    EXPECT_THAT(refusal([] { designFilters({{filter(32000, {1})}}, {"Mono"}, {k48}); }),
                AllOf(HasSubstr("32 kHz"), HasSubstr("48 kHz")));
}

TEST(FilterDesign, AStrongBoostIsWorthAWarning) {
    const auto design = designFilters({{filter(48000, {1})}, {filter(48000, {5})}}, kStereo, {k48});

    EXPECT_THAT(design.warnings,
                ElementsAre(AllOf(HasSubstr("Front right"), HasSubstr("14.0 dB"))));
}

TEST(FilterDesign, ASilentSpeakerIsWorthAWarning) {
    const auto design =
        designFilters({{filter(48000, {0, 0})}, {filter(48000, {1})}}, kStereo, {k48, k44});

    EXPECT_THAT(design.warnings, ElementsAre(AllOf(HasSubstr("Front left"), HasSubstr("silent"))));
}

TEST(FilterDesign, TapsBeyondAFloatAreRefused) {
    EXPECT_THAT(refusal([] { designFilters({{filter(48000, {1e39})}}, {"Mono"}, {k48}); }),
                HasSubstr("too large"));
}

}  // namespace
}  // namespace calibrate
