#include "calibrate/design/Deviation.h"
#include "calibrate/design/Prediction.h"
#include "calibrate/design/SpeakerDesign.h"
#include "calibrate/design/SystemDesign.h"
#include "calibrate/measurement/PowerSpectrum.h"
#include "calibrate/measurement/SoundFile.h"
#include "calibrate/support/SoundFiles.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace calibrate;

namespace {

constexpr double kTolerance = 0.02;  // dB

/// A measured response, and what the Debian package drc leaves of its deviation (its "normal"
/// preset, flat target, 65536 taps), as scripts/compare-with-drc finds it.
struct Room {
    const char* file;
    std::size_t channel;
    double deviationOfDrc;  ///< dB
};

constexpr Room kRooms[] = {{"living-room/rir-front-left-right-seat1.wav", 0, 1.43},
                           {"living-room/rir-front-left-right-seat1.wav", 1, 1.45},
                           {"living-room/rir-second-pair-seat1.wav", 0, 1.49},
                           {"living-room/rir-second-pair-seat1.wav", 1, 1.62},
                           {"near-field/rir.wav", 0, 3.64},
                           {"seminar-room/rir-two-ears.wav", 0, 3.13},
                           {"seminar-room/rir-two-ears.wav", 1, 3.54}};

}  // namespace

class RealRoomTest : public testing::TestWithParam<Room> {};

TEST_P(RealRoomTest, correctionComesCloserToTheTargetThanAConvolversFilter) {
    const auto path = testData() / "rooms" / GetParam().file;
    if (testData().empty() || !std::filesystem::exists(path))
        GTEST_SKIP() << "no measured data here";
    const auto responses = measurement::impulseResponses(measurement::readSoundFile(path));
    const auto& response = responses.at(GetParam().channel);
    const auto result = design::designSystem({{"speaker", false, 0, {response}}}, {});
    for (const auto& filter : result.speakers.front().filters) {
        if (filter.sampleRate != response.sampleRate)
            continue;
        const auto corrected = design::predict(response, filter);
        const measurement::PowerSpectrum spectrum(corrected.samples, corrected.sampleRate);
        EXPECT_LE(design::deviation(spectrum, {}), 0.8 * GetParam().deviationOfDrc);
        EXPECT_LE(design::largestGain(filter), kTolerance);
        EXPECT_LE(design::boost(filter, 20, 18'000), 6 + kTolerance);
    }
}

INSTANTIATE_TEST_SUITE_P(Rooms, RealRoomTest, testing::ValuesIn(kRooms));
