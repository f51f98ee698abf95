#include "calibrate/design/Deviation.h"
#include "calibrate/design/DevicePath.h"
#include "calibrate/design/RoomSet.h"
#include "calibrate/design/SpeakerDesign.h"
#include "calibrate/design/SystemDesign.h"
#include "calibrate/measurement/Deconvolution.h"
#include "calibrate/measurement/Signals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

using namespace calibrate;

namespace {

using measurement::PowerSpectrum;

constexpr double kLimitTolerance = 0.02;  // dB

/// Where the whole correction of a speaker would need more than the limits allow: from what was
/// measured and the limits alone, whatever a design makes of them.
class Need {
public:
    Need(const measurement::ImpulseResponse& response, const design::CorrectionCurve& range,
         const design::Limits& limits)
        : gains_(wholeCorrection(PowerSpectrum(response.samples, response.sampleRate))),
          most_(1e3) {
        // Boost and cut count from the gain for pink noise of what is left within the limits.
        for (int i = 0; i < 100; ++i)
            most_ = pinkGain(range.lowest, range.highest) + limits.maxBoost;
        least_ = most_ - limits.maxBoost - limits.maxCut;
    }

    bool isWithinLimits(std::size_t point) const {
        return gains_[point].level <= most_ && gains_[point].level >= least_;
    }

private:
    static std::vector<measurement::FrequencyCurve::Point> wholeCorrection(
        const PowerSpectrum& response) {
        auto points = design::deviationCurve(response, {});
        for (auto& point : points)
            point.level = -point.level;
        return points;
    }

    double pinkGain(double lowest, double highest) const {
        double sum = 0;
        double count = 0;
        for (const auto& [frequency, gain] : gains_) {
            if (frequency < lowest || frequency > highest)
                continue;
            sum += std::pow(10.0, std::min(gain, most_) / 10);
            ++count;
        }
        return 10 * std::log10(sum / count);
    }

    std::vector<measurement::FrequencyCurve::Point> gains_;
    double most_;
    double least_{0};
};

/// Standard deviation of what is left where the speaker that plays a frequency, a subwoofer below
/// the crossover, can be corrected within its limits.
class LeftWithinLimits {
public:
    LeftWithinLimits(const SimulatedRoom& room, const design::SystemDesign& design)
        : crossover_(design.bass ? design.bass->management.crossover : 0) {
        for (std::size_t i = 0; i < room.speakers.size(); ++i)
            needs_.emplace_back(room.speakers[i].positions.front(), design.speakers[i].curve,
                                design::Limits{});
    }

    double of(std::size_t speaker, const PowerSpectrum& after) const {
        double sum = 0;
        double squares = 0;
        double count = 0;
        const auto points = design::deviationCurve(after, {});
        for (std::size_t i = 0; i < points.size(); ++i) {
            const auto& need =
                points[i].frequency < crossover_ ? needs_.back() : needs_.at(speaker);
            if (!need.isWithinLimits(i))
                continue;
            sum += points[i].level;
            squares += points[i].level * points[i].level;
            ++count;
        }
        EXPECT_GE(count, 344) << "of " << points.size();
        return std::sqrt(squares / count - sum * sum / (count * count));
    }

private:
    double crossover_;
    std::vector<Need> needs_;
};

/// dB between two spectra at 1/6 octave where they differ most.
double largestDifference(const PowerSpectrum& one, const PowerSpectrum& other) {
    double largest = 0;
    for (double frequency = 30; frequency <= 16'000; frequency *= 1.02)
        largest =
            std::max(largest, std::abs(10 * std::log10(one.meanAround(frequency, 1.0 / 6) /
                                                       other.meanAround(frequency, 1.0 / 6))));
    return largest;
}

}  // namespace

class SimulatedRoomTest : public testing::TestWithParam<std::size_t> {};

TEST_P(SimulatedRoomTest, deconvolvedResponsesAreWithin60DecibelsOfTheTruth) {
    const auto sweep = measurement::fullBandSweep(48'000);
    for (const auto& speaker : simulatedRoom(GetParam()).speakers) {
        const auto& truth = speaker.positions.front();
        const auto recording = heard(measurement::sweepSamples(sweep), truth.samples, -60,
                                     static_cast<unsigned>(GetParam()));
        const auto measured = measurement::deconvolve(recording, 48'000, sweep);
        EXPECT_LT(errorBetween(truth, measured.response, 20, 20'000), -60) << speaker.name;
    }
}

TEST_P(SimulatedRoomTest, correctedSpeakerIsWithinOneDecibelOfItsTarget) {
    const auto& room = simulatedRoom(GetParam());
    const auto& designed = designOfSimulatedRoom(GetParam());
    const LeftWithinLimits left(room, designed);
    for (std::size_t i = 0; i < designed.speakers.size(); ++i) {
        const auto& speaker = designed.speakers[i];
        if (speaker.subwoofer)
            continue;
        const PowerSpectrum after(speaker.predicted.samples, speaker.predicted.sampleRate);
        EXPECT_LE(left.of(i, after), 1.0) << speaker.name;
        EXPECT_LT(speaker.deviationAfter, 0.6 * speaker.deviationBefore) << speaker.name;
    }
}

TEST_P(SimulatedRoomTest, everyFilterKeepsItsLimits) {
    for (const auto& speaker : designOfSimulatedRoom(GetParam()).speakers) {
        const auto& filter = speaker.filters.front();
        EXPECT_TRUE(filter.isStable()) << speaker.name;
        EXPECT_LE(design::largestGain(filter), kLimitTolerance) << speaker.name;
        EXPECT_LE(design::boost(filter, speaker.curve.lowest, speaker.curve.highest),
                  6 + kLimitTolerance)
            << speaker.name;
        EXPECT_LE(design::largestGroupDelay(filter, speaker.curve.lowest, speaker.curve.highest),
                  0.15)
            << speaker.name;
    }
}

TEST_P(SimulatedRoomTest, isMeasuredAsPredicted) {
    const auto& room = simulatedRoom(GetParam());
    const auto& designed = designOfSimulatedRoom(GetParam());
    const std::size_t speaker = GetParam() / 2 % 2;
    const auto truth = throughDevice(designed, room.speakers, speaker, 48'000);
    const auto sweep = measurement::fullBandSweep(48'000);
    const auto recording = heard(measurement::sweepSamples(sweep), truth, -60, 1);
    const auto measured = measurement::deconvolve(recording, 48'000, sweep).response;
    const auto& predicted = designed.speakers[speaker].predicted;
    EXPECT_LT(largestDifference(PowerSpectrum(measured.samples, 48'000),
                                PowerSpectrum(predicted.samples, 48'000)),
              0.5);
}

INSTANTIATE_TEST_SUITE_P(Rooms, SimulatedRoomTest, testing::Range(std::size_t{0}, kSimulatedRooms));
