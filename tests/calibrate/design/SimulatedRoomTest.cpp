#include "calibrate/design/Deviation.h"
#include "calibrate/design/Prediction.h"
#include "calibrate/design/RoomSet.h"
#include "calibrate/design/SpeakerDesign.h"
#include "calibrate/design/SystemDesign.h"
#include "calibrate/measurement/Deconvolution.h"
#include "calibrate/measurement/Signals.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>

using namespace calibrate;

namespace {

design::SystemOptions optionsAt48kHz() {
    design::SystemOptions options;
    options.capacities = {{48'000, 1'000, 30}};
    return options;
}

/// Whether a curve stands at its limit of boost at a frequency or close to it.
bool isLimited(const design::CorrectionCurve& curve, double frequency) {
    const double most = std::ranges::max(curve.gains);
    return std::ranges::any_of(std::array{0.89, 0.94, 1.0, 1.06, 1.12}, [&](double neighbour) {
        return curve.grid.interpolate(curve.gains, frequency * neighbour) > most - 0.2;
    });
}

/// Standard deviation of what is left where no correction that takes part stands at its limit.
double deviationWithinLimits(const measurement::PowerSpectrum& after,
                             const std::vector<design::CorrectionCurve>& curves) {
    double sum = 0;
    double squares = 0;
    double count = 0;
    for (const auto& point : design::deviationCurve(after, {})) {
        const auto limited = [&](const auto& curve) { return isLimited(curve, point.frequency); };
        if (std::ranges::any_of(curves, limited))
            continue;
        sum += point.level;
        squares += point.level * point.level;
        ++count;
    }
    return std::sqrt(squares / count - sum * sum / (count * count));
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
    const auto room = simulatedRoom(GetParam());
    std::vector<design::MeasuredSpeaker> speakers = room.speakers;
    for (auto& speaker : speakers)
        speaker.positions.resize(1);
    const auto designed = design::designSystem(speakers, optionsAt48kHz());
    for (const auto& speaker : designed.speakers) {
        EXPECT_TRUE(speaker.filters.front().isStable()) << speaker.name;
        EXPECT_LE(design::largestGain(speaker.filters.front()), 0.02) << speaker.name;
        if (speaker.subwoofer)
            continue;
        std::vector<design::CorrectionCurve> curves{speaker.curve};
        if (designed.bass)
            curves.push_back(designed.speakers.back().curve);
        const measurement::PowerSpectrum after(speaker.predicted.samples, 48'000);
        EXPECT_LE(deviationWithinLimits(after, curves), 1.0) << speaker.name;
        EXPECT_LT(speaker.deviationAfter, 0.6 * speaker.deviationBefore) << speaker.name;
    }
}

INSTANTIATE_TEST_SUITE_P(Rooms, SimulatedRoomTest, testing::Range(std::size_t{0}, kSimulatedRooms));
