#include "calibrate/measurement/ClockDrift.h"
#include "calibrate/measurement/Fft.h"
#include "calibrate/measurement/Signals.h"
#include "calibrate/run/SweepSeparation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>

namespace calibrate::run {
namespace {

constexpr double kRate = 48'000;
constexpr std::size_t kSpeakers = 6;
constexpr std::size_t kLater = 24;  // samples by which each speaker is heard after the one before

const measurement::LogSweep kSweep{10, 24'000, 72'000, 14'400, 1, kRate, 300};

/// A row of speakers and the first one once more, by a microphone whose clock runs fast.
std::vector<double> recordingOf(double driftPpm) {
    const auto sweep = measurement::sweepSamples(kSweep);
    std::vector<double> row((kSpeakers + 2) * sweep.size());
    for (std::size_t i = 0; i <= kSpeakers; ++i) {
        const std::size_t speaker = i % kSpeakers;
        auto room = smallRoom(6'000, 900, 0.3, 1);
        room.insert(room.begin(), kLater * speaker, 0.0);
        const auto sound = heard(sweep, room, -60, static_cast<unsigned>(i));
        for (std::size_t k = 0; k < sound.size(); ++k)
            row[i * sweep.size() + k] += sound[k];
    }
    return measurement::withoutDrift(row, kRate, -driftPpm);
}

/// s by which the last speaker's response is from where it should be, seen from the first one: the
/// slope of the phase between them in the middle of the range.
double lateness(double driftPpm, bool closing) {
    const auto separated =
        separateSweeps(recordingOf(driftPpm), kRate, kSweep, kSpeakers + 1, closing);
    const auto& first = separated.parts[0];
    const auto& last = separated.parts[kSpeakers - 1];
    const auto startOf = [](const SeparatedSweep& part) {
        return part.deconvolution.response.start + part.origin;
    };
    const double offset =
        startOf(last) - startOf(first) - static_cast<double>((kSpeakers - 1) * kLater) / kRate;
    const std::size_t size = measurement::fftSize(first.deconvolution.response.samples.size());
    const auto a = measurement::forwardFft(first.deconvolution.response.samples, size);
    const auto b = measurement::forwardFft(last.deconvolution.response.samples, size);
    double turn = 0;
    double weight = 0;
    for (std::size_t bin = 1; bin < a.size(); ++bin) {
        const double angular =
            2 * std::numbers::pi * static_cast<double>(bin) * kRate / static_cast<double>(size);
        if (angular < 2 * std::numbers::pi * 500 || angular > 2 * std::numbers::pi * 2'000)
            continue;
        const auto between = std::conj(a[bin]) * b[bin] * std::polar(1.0, -angular * offset);
        turn -= std::abs(between) * std::arg(between) * angular;
        weight += std::abs(between) * angular * angular;
    }
    return turn / weight;
}

}  // namespace

class SweepSeparationDrift : public testing::TestWithParam<double> {};

TEST_P(SweepSeparationDrift, aClosingSweepAlignsTheWholeRow) {
    EXPECT_LT(std::abs(lateness(GetParam(), true)), 5e-6);
}

INSTANTIATE_TEST_SUITE_P(Ppm, SweepSeparationDrift, testing::Values(-250, 0, 4, 120));

TEST(SweepSeparation, theClocksDriftIsTold) {
    const auto separated = separateSweeps(recordingOf(120), kRate, kSweep, kSpeakers + 1, true);
    EXPECT_NEAR(separated.driftPpm, 120, 0.5);
}

}  // namespace calibrate::run
