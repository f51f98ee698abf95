#include "calibrate/design/Deviation.h"
#include "calibrate/design/Prediction.h"
#include "calibrate/design/SystemDesign.h"
#include "calibrate/measurement/SoundFile.h"
#include "calibrate/support/SoundFiles.h"

#include <gtest/gtest.h>

using namespace calibrate;
using measurement::ImpulseResponse;

namespace {

struct Seat {
    const char* file;
    std::size_t channel;
    /// What the filter that the Debian package drc ("normal", flat target, 65536 taps) makes for
    /// the other seat leaves of the deviation at this one, dB.
    double deviationWithDrc;
};

/// A loudspeaker at two places of the microphone in a real room.
struct Seats {
    Seat first;
    Seat second;
};

constexpr Seats kSeats[] = {
    {{"living-room/rir-front-left-right-seat1.wav", 0, 2.23},
     {"living-room/rir-second-pair-seat1.wav", 0, 1.99}},
    {{"living-room/rir-front-left-right-seat1.wav", 1, 2.74},
     {"living-room/rir-second-pair-seat1.wav", 1, 2.82}},
    {{"seminar-room/rir-two-ears.wav", 0, 3.61}, {"seminar-room/rir-two-ears.wav", 1, 3.81}}};

double deviationOf(const ImpulseResponse& response) {
    return design::deviation(measurement::PowerSpectrum(response.samples, response.sampleRate), {});
}

class RealSeatsTest : public testing::TestWithParam<Seats> {
protected:
    void SetUp() override {
        for (const auto& seat : {GetParam().first, GetParam().second}) {
            const auto path = testData() / "rooms" / seat.file;
            if (testData().empty() || !std::filesystem::exists(path))
                GTEST_SKIP() << "no measured data here";
            seats_.push_back(
                measurement::impulseResponses(measurement::readSoundFile(path)).at(seat.channel));
        }
    }

    design::ParallelFilter filterFor(const std::vector<ImpulseResponse>& seats) const {
        design::SystemOptions options;
        options.capacities = {{seats.front().sampleRate, 1'000, 30}};
        const auto designed = design::designSystem({{"speaker", false, 0, seats}}, options);
        return designed.speakers.front().filters.front();
    }

    std::vector<ImpulseResponse> seats_;
};

}  // namespace

TEST_P(RealSeatsTest, filterForOneSeatIsBetterThanAConvolversAtTheOther) {
    const double atSecond = deviationOf(predict(seats_[1], filterFor({seats_[0]})));
    const double atFirst = deviationOf(predict(seats_[0], filterFor({seats_[1]})));
    EXPECT_LE(atSecond, GetParam().second.deviationWithDrc);
    EXPECT_LE(atFirst, GetParam().first.deviationWithDrc);
    EXPECT_LT(atSecond, deviationOf(seats_[1]));
    EXPECT_LT(atFirst, deviationOf(seats_[0]));
}

TEST_P(RealSeatsTest, filterForBothSeatsImprovesEachMoreThanTheOthersFilter) {
    const auto both = filterFor(seats_);
    for (const std::size_t seat : {0U, 1U}) {
        const double after = deviationOf(predict(seats_[seat], both));
        EXPECT_LT(after, 0.6 * deviationOf(seats_[seat]));
        EXPECT_LT(after, deviationOf(predict(seats_[seat], filterFor({seats_[1 - seat]}))));
    }
}

INSTANTIATE_TEST_SUITE_P(Seats, RealSeatsTest, testing::ValuesIn(kSeats));
