#include "calibrate/report/Figures.h"
#include "calibrate/report/TestCalibration.h"

#include <gmock/gmock.h>

#include <limits>

namespace calibrate::report {
namespace {

using measurement::Check;
using measurement::Verdict;
using testing::ElementsAre;

Calibration withFlatSpeaker() {
    Calibration calibration = measuredCalibration({"A"});
    std::vector<double> impulse(4'800);
    impulse[10] = 1;
    calibration.speakers[0].positions[0].response = {48'000, impulse, 0};
    return calibration;
}

TEST(FiguresTest, AFlatSpeakerDoesNotDeviate) {
    EXPECT_NEAR(*figures(withFlatSpeaker(), 0).deviationBefore, 0, 1e-6);
}

TEST(FiguresTest, ADesignBringsThePredictionAndAVerificationTheResult) {
    const auto result = figures(stereoCalibration(), 0);

    EXPECT_LT(*result.deviationPredicted, *result.deviationBefore);
    EXPECT_EQ(result.deviationAfter, result.deviationPredicted);
    EXPECT_NEAR(*result.difference, 0, 1e-9);
}

TEST(FiguresTest, ADifferenceDoesNotDependOnTheLevel) {
    Calibration calibration = stereoCalibration();
    for (double& sample : calibration.speakers[0].verification->sweep.response.samples)
        sample *= 0.1;

    EXPECT_NEAR(*figures(calibration, 0).difference, 0, 1e-9);
}

TEST(FiguresTest, WithoutResponsesThereAreNoFigures) {
    Calibration calibration = measuredCalibration({"A"});
    calibration.speakers[0].positions.clear();

    const auto result = figures(calibration, 0);

    EXPECT_FALSE(result.before);
    EXPECT_FALSE(result.deviationBefore);
    EXPECT_FALSE(result.deviationNow());
}

TEST(FiguresTest, ResponsesThatAreNoNumbersOrSilentAreLeftOut) {
    Calibration calibration = measuredCalibration({"A", "B"});
    calibration.speakers[0].positions[0].response.samples[7] =
        std::numeric_limits<double>::quiet_NaN();
    calibration.speakers[1].positions[0].response.samples.assign(1'000, 0);

    EXPECT_FALSE(figures(calibration, 0).before);
    EXPECT_FALSE(figures(calibration, 1).before);
}

TEST(FiguresTest, ASummarySaysWhatIsMeasuredAndWhatPredicted) {
    SpeakerFigures result;
    const Speaker speaker{"Front left", "", {}, {}};
    EXPECT_EQ(summary(speaker, result), "Front left: not measured");
    result.deviationBefore = 3.24;
    EXPECT_EQ(summary(speaker, result), "Front left: deviation 3.2 dB, not corrected");
    result.deviationPredicted = 1.04;
    EXPECT_EQ(summary(speaker, result), "Front left: deviation 3.2 dB → 1.0 dB, predicted");
    result.deviationAfter = 0.84;
    EXPECT_EQ(summary(speaker, result), "Front left: deviation 3.2 dB → 0.8 dB, measured");
}

TEST(FiguresTest, TheWorstVerdictOfAllCounts) {
    Calibration calibration = stereoCalibration();
    EXPECT_EQ(worstVerdict(calibration), Verdict::good);
    calibration.speakers[1].positions[0].checks.checks[0].verdict = Verdict::poor;
    EXPECT_EQ(worstVerdict(calibration), Verdict::poor);
    calibration.speakers[0].verification->verdict = Verdict::unusable;
    EXPECT_EQ(worstVerdict(calibration), Verdict::unusable);
}

TEST(FiguresTest, WarningsComeOnceAndTheVerificationFirst) {
    Calibration calibration = measuredCalibration({"A", "B"});
    calibration.warnings = {"Mind this."};
    for (auto& speaker : calibration.speakers)
        speaker.positions[0].checks.checks.push_back(
            {Check::Subject::noise, Verdict::poor, 0, "The room is loud."});
    calibration.speakers[1].verification = Verification{{}, Verdict::poor, "B is off."};

    EXPECT_THAT(allWarnings(calibration),
                ElementsAre("B is off.", "Mind this.", "The room is loud."));
}

TEST(FiguresTest, NamesAreMadeFitForAPage) {
    EXPECT_EQ(displayName("Left"), "Left");
    EXPECT_EQ(displayName(""), "loudspeaker");
    EXPECT_EQ(displayName("  "), "loudspeaker");
    EXPECT_EQ(displayName("a\nb\xff"), "a?b?");
    EXPECT_EQ(displayName("a\u202Eb\u2066c"), "a?b?c");
    EXPECT_EQ(displayName("a…b"), "a…b");
}

TEST(FiguresTest, LongNamesAreCutBetweenCharacters) {
    std::string name;
    std::string kept;
    for (int i = 0; i < 1'000; ++i)
        name += "ü";
    for (int i = 0; i < 60; ++i)
        kept += "ü";

    EXPECT_EQ(displayName(name), kept + "…");
}

TEST(FiguresTest, ASweepsFiguresComeFromItsRecording) {
    const auto sweep = measurement::fullBandSweep(48'000);
    measurement::Recording recording;
    recording.speaker = "A";
    recording.sampleRate = 48'000;
    recording.silence.assign(9'600, 0.001);
    for (const float sample : measurement::sweepSamples(sweep))
        recording.samples.push_back(0.5 * sample);
    const measurement::Deconvolution deconvolution{{}, {{2, -50}}, 60};

    const auto result = sweepResult(recording, sweep, deconvolution, {}, {48'000, {1}, 0});

    EXPECT_NEAR(*result.noise, -60, 1e-6);
    EXPECT_EQ(*result.level, measurement::levelOf(recording.samples));
    EXPECT_FALSE(result.signalToNoise.empty());
    EXPECT_EQ(result.distortion.size(), 1U);
    EXPECT_EQ(result.response.samples.size(), 1U);
}

}  // namespace
}  // namespace calibrate::report
