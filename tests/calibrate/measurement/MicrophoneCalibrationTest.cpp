#include "calibrate/measurement/MicrophoneCalibration.h"
#include "calibrate/measurement/PowerSpectrum.h"
#include "calibrate/measurement/Signals.h"
#include "calibrate/support/SoundFiles.h"
#include "support/ScratchDirectory.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace calibrate::measurement;

namespace {

std::optional<double> sensitivityOf(const std::string& header) {
    const ScratchDirectory scratch;
    writeText(scratch.path() / "microphone.txt", header + "\n20 0\n20000 1\n");
    return readMicrophoneCalibration(scratch.path() / "microphone.txt").sensitivity;
}

}  // namespace

TEST(MicrophoneCalibration, readsTheSensitivityAsMakersWriteIt) {
    EXPECT_EQ(sensitivityOf("\"Sens Factor =-.8643dB, SERNO: 7047870\""), -0.8643);
    EXPECT_EQ(sensitivityOf("*1000Hz\t-40.2"), -40.2);
    EXPECT_EQ(sensitivityOf("# Sensitivity: -36.5 dBV/Pa"), -36.5);
    EXPECT_EQ(sensitivityOf("# nothing of the kind"), std::nullopt);
}

TEST(MicrophoneCalibration, takesTheDeviationOutWithoutDelay) {
    const MicrophoneCalibration microphone{FrequencyCurve({{100, -3}, {1'000, 0}, {10'000, 6}}),
                                           std::nullopt};
    std::vector<double> impulse(8'192);
    impulse[100] = 1;
    const auto result = calibrated({48'000, impulse, 0.5}, microphone);
    const PowerSpectrum spectrum(result.samples, 48'000);
    EXPECT_NEAR(10 * std::log10(spectrum.meanAround(10'000, 0.1)), -6, 0.1);
    EXPECT_NEAR(10 * std::log10(spectrum.meanAround(1'000, 0.1)), 0, 0.1);
    EXPECT_NEAR(10 * std::log10(spectrum.meanAround(100, 0.1)), 3, 0.2);
    EXPECT_EQ(result.start, 0.5);
    double before = 0;
    for (std::size_t i = 0; i < 100; ++i)
        before = std::max(before, std::abs(result.samples[i]));
    EXPECT_LT(before, 1e-6);
}

TEST(MicrophoneCalibration, readsTheFilesOfMakers) {
    const auto folder = testData() / "mic-calibration";
    if (testData().empty() || !std::filesystem::exists(folder))
        GTEST_SKIP() << "no measured data here";
    const auto umik = readMicrophoneCalibration(folder / "umik-90deg.txt");
    EXPECT_EQ(umik.sensitivity, -0.8643);
    EXPECT_EQ(umik.response.points().size(), 615U);
    EXPECT_EQ(umik.response.level(10.054), -3.9156);
    const auto dayton = readMicrophoneCalibration(folder / "dayton-style.txt");
    EXPECT_EQ(dayton.sensitivity, -40.2);
    EXPECT_EQ(dayton.response.level(20), -0.5);
}
