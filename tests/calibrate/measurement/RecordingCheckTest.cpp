#include "calibrate/measurement/RecordingCheck.h"
#include "calibrate/measurement/SampleRate.h"
#include "calibrate/measurement/Signals.h"
#include "calibrate/measurement/SoundFile.h"
#include "calibrate/support/SoundFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <numbers>

using namespace calibrate::measurement;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

const LogSweep kSweep = fullBandSweep(48'000);

Recording goodRecording() {
    const auto room = smallRoom(12'000, 900, 0.1, 1);
    const auto samples = heard(sweepSamples(kSweep), room, -60, 2);
    return {"front left", 48'000, whiteNoise(24'000, 1e-3 * rms(samples), 3), samples};
}

/// A subwoofer's, in a room whose noise is far above what a subwoofer plays in the treble.
Recording subwooferRecording() {
    // Two sections of first order at 100 Hz: 55 dB down at 2 kHz.
    const double keep = std::exp(-2 * std::numbers::pi * 100 / 48'000);
    std::vector<double> woofer(12'000);
    for (std::size_t i = 900; i < woofer.size(); ++i) {
        const double n = static_cast<double>(i - 900);
        woofer[i] = (1 - keep) * (1 - keep) * (n + 1) * std::pow(keep, n);
    }
    const auto samples = heard(sweepSamples(kSweep), woofer, -55, 9);
    const double noise = rms(samples) * std::pow(10.0, -55.0 / 20);
    return {"subwoofer", 48'000, whiteNoise(48'000, noise, 10), samples, {0, 120}};
}

std::vector<std::string> subjects(const RecordingChecks& checks) {
    std::vector<std::string> names;
    for (const auto& check : checks.checks)
        names.push_back(subjectName(check.subject));
    return names;
}

RecordingChecks check(const Recording& recording) {
    return checkRecording(recording, kSweep,
                          deconvolve(recording.samples, recording.sampleRate, kSweep));
}

void expectUnusable(const Recording& recording, Check::Subject subject, const std::string& text) {
    const auto checks = check(recording);
    EXPECT_EQ(checks.worst(), Verdict::unusable);
    EXPECT_EQ(subjectName(checks.checks.back().subject), subjectName(subject));
    EXPECT_THAT(checks.summary(), HasSubstr(text));
}

}  // namespace

TEST(RecordingCheck, goodRecordingPassesEveryCheck) {
    const auto checks = check(goodRecording());
    EXPECT_EQ(checks.worst(), Verdict::good) << checks.summary();
    EXPECT_EQ(checks.checks.size(), 7U);
}

TEST(RecordingCheck, unpluggedMicrophone) {
    auto recording = goodRecording();
    std::ranges::fill(recording.samples, 0.0);
    expectUnusable(recording, Check::Subject::signal, "plugged in");
}

TEST(RecordingCheck, constantIsNoMicrophoneEither) {
    auto recording = goodRecording();
    std::ranges::fill(recording.samples, 0.25);
    expectUnusable(recording, Check::Subject::signal, "no signal");
}

TEST(RecordingCheck, clippedRecording) {
    auto recording = goodRecording();
    for (double& sample : recording.samples)
        sample = std::clamp(20 * sample, -1.0, 1.0);
    expectUnusable(recording, Check::Subject::clipping, "clipped");
}

TEST(RecordingCheck, loudRoomIsPoor) {
    auto recording = goodRecording();
    recording.silence = whiteNoise(24'000, 0.02, 4);
    const auto checks = check(recording);
    EXPECT_EQ(checks.checks[2].verdict, Verdict::poor);
    EXPECT_THAT(checks.checks[2].text, HasSubstr("loud"));
}

TEST(RecordingCheck, deadSpeaker) {
    auto recording = goodRecording();
    recording.samples = whiteNoise(300'000, 1e-3, 5);
    recording.silence = whiteNoise(24'000, 1e-3, 6);
    expectUnusable(recording, Check::Subject::sweep, "Nothing arrived from \"front left\"");
}

TEST(RecordingCheck, somethingElseThanTheSweep) {
    auto recording = goodRecording();
    recording.samples = whiteNoise(300'000, 0.1, 5);
    expectUnusable(recording, Check::Subject::sweep, "sweep is not in it");
}

TEST(RecordingCheck, wrongSampleRate) {
    auto recording = goodRecording();
    recording.samples = atSampleRate(recording.samples, 48'000, 44'100);
    expectUnusable(recording, Check::Subject::continuity, "makes sense at 44.1 kHz");
}

TEST(RecordingCheck, recordingThatEndsEarly) {
    auto recording = goodRecording();
    recording.samples.resize(190'000);
    expectUnusable(recording, Check::Subject::completeness, "before the sweep does");
}

TEST(RecordingCheck, recordingThatFallsSilent) {
    auto recording = goodRecording();
    std::fill(recording.samples.begin() + 190'000, recording.samples.end(), 0.0);
    expectUnusable(recording, Check::Subject::completeness, "before the sweep does");
}

TEST(RecordingCheck, lostBlock) {
    auto recording = goodRecording();
    const auto start = recording.samples.begin() + 175'000;
    recording.samples.erase(start, start + 512);
    expectUnusable(recording, Check::Subject::continuity, "samples were lost");
}

TEST(RecordingCheck, noisyOctavesAreNamed) {
    auto recording = goodRecording();
    const auto noise = whiteNoise(recording.samples.size(), 0.5 * rms(recording.samples), 7);
    std::ranges::transform(recording.samples, noise, recording.samples.begin(), std::plus<>());
    recording.silence = whiteNoise(48'000, rms(noise), 8);
    const auto checks = check(recording);
    EXPECT_NE(checks.worst(), Verdict::good);
    EXPECT_THAT(checks.checks.back().text, HasSubstr("16 kHz"));
}

TEST(RecordingCheck, octavesThatASubwooferDoesNotPlayAreNotJudged) {
    const auto checks = check(subwooferRecording());
    EXPECT_EQ(checks.worst(), Verdict::good) << checks.summary();
    EXPECT_THAT(subjects(checks),
                ElementsAre("signal", "clipping", "noise", "sweep", "completeness", "band_noise"));
}

TEST(RecordingCheck, theSameRecordingIsUnusableForASpeakerOfTheWholeRange) {
    auto recording = subwooferRecording();
    recording.range = {};
    expectUnusable(recording, Check::Subject::continuity, "samples were lost");
}

TEST(RecordingCheck, noiseInTheOctavesThatASubwooferPlaysIsTold) {
    auto recording = subwooferRecording();
    auto hum = whiteNoise(recording.samples.size() + 48'000, 1, 11);
    double last = 0;
    for (double& sample : hum)
        sample = last = 0.99 * last + sample;
    const double level = 0.4 * rms(recording.samples) / rms(hum);
    for (double& sample : hum)
        sample *= level;
    std::transform(recording.samples.begin(), recording.samples.end(), hum.begin(),
                   recording.samples.begin(), std::plus<>());
    recording.silence.assign(hum.end() - 48'000, hum.end());
    const auto checks = check(recording);
    EXPECT_NE(checks.worst(), Verdict::good);
    EXPECT_EQ(subjectName(checks.checks.back().subject), "band_noise");
    EXPECT_THAT(checks.checks.back().text,
                AllOf(HasSubstr("\"subwoofer\" hardly stands out of the noise at"),
                      HasSubstr("63 Hz"), Not(HasSubstr("kHz"))));
}

TEST(RecordingCheck, clapIsNoSweep) {
    const auto clap = testData() / "negatives" / "clap.wav";
    if (testData().empty() || !std::filesystem::exists(clap))
        GTEST_SKIP() << "no measured data here";
    const auto file = calibrate::measurement::readSoundFile(clap);
    const Recording recording{"front left", file.sampleRate, {}, file.channels.front()};
    const auto checks =
        checkRecording(recording, kSweep, deconvolve(recording.samples, file.sampleRate, kSweep));
    EXPECT_EQ(checks.worst(), Verdict::unusable);
}
