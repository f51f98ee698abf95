#include "calibrate/Errors.h"
#include "calibrate/design/Prediction.h"
#include "calibrate/design/RoomSet.h"
#include "calibrate/design/SpeakerDesign.h"
#include "calibrate/design/SystemDesign.h"
#include "calibrate/measurement/Signals.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace calibrate;
using namespace calibrate::design;
using testing::HasSubstr;

namespace {

MeasuredSpeaker speaker(const std::string& name, std::size_t delay, double level) {
    return {name, false, 0, {{48'000, smallRoom(24'000, delay, level, 1), 0}}};
}

std::string refusal(const std::vector<MeasuredSpeaker>& speakers,
                    const SystemOptions& options = {}) {
    try {
        (void)designSystem(speakers, options);
    } catch (const BadInput& error) {
        return error.what();
    }
    return "";
}

}  // namespace

TEST(SystemDesign, everyCapacityGetsAFilterOfItsOwnRate) {
    const auto design = designSystem({speaker("left", 480, 0.5)}, {});
    const auto& filters = design.speakers.front().filters;
    ASSERT_EQ(filters.size(), 2U);
    EXPECT_EQ(filters[0].sampleRate, 48'000);
    EXPECT_EQ(filters[1].sampleRate, 44'100);
}

TEST(SystemDesign, headroomIsKeptAndTheBalanceToo) {
    const auto design = designSystem({speaker("left", 480, 0.5), speaker("right", 500, 0.2)}, {});
    double largest = -100;
    for (const auto& corrected : design.speakers)
        for (const auto& filter : corrected.filters)
            largest = std::max(largest, largestGain(filter));
    EXPECT_NEAR(largest, 0, 0.01);
    EXPECT_LE(design.attenuation, 0);
}

TEST(SystemDesign, speakersAreAligned) {
    const auto design = designSystem({speaker("left", 480, 0.5), speaker("right", 528, 0.25)}, {});
    EXPECT_NEAR(design.speakers[0].alignment.delay, 0.001, 3e-5);
    EXPECT_NEAR(design.speakers[0].alignment.gain, -6.02, 0.5);
    EXPECT_EQ(design.speakers[1].alignment.delay, 0);
}

TEST(SystemDesign, alignmentMayBeLeftAlone) {
    SystemOptions options;
    options.align = false;
    const auto design =
        designSystem({speaker("left", 480, 0.5), speaker("right", 528, 0.25)}, options);
    EXPECT_EQ(design.speakers[0].alignment.delay, 0);
    EXPECT_EQ(design.speakers[0].alignment.gain, 0);
}

TEST(SystemDesign, subwooferBringsBassManagement) {
    const auto design = designSystem(simulatedRoom(1).speakers, {});
    ASSERT_TRUE(design.bass);
    EXPECT_EQ(design.bass->cells.size(), 2U);
    EXPECT_EQ(design.bass->management.alignments.size(), 3U);
    EXPECT_EQ(design.bass->deviations.size(), 2U);
}

TEST(SystemDesign, subwooferIsPredictedAsTheCrossoverHasLeftIt) {
    bool isAligned = false;
    bool isInverted = false;
    for (std::size_t room = 1; room < kSimulatedRooms; room += 2) {
        const auto& design = designOfSimulatedRoom(room);
        const auto& subwoofer = design.speakers.back();
        const auto& response = simulatedRoom(room).speakers.back().positions.front();
        const auto expected = aligned(predict(response, subwoofer.filters.front()),
                                      subwoofer.alignment.gain, subwoofer.alignment.delay);
        isAligned |= subwoofer.alignment.gain < 0 || subwoofer.alignment.delay > 0;
        isInverted |= design.bass->management.inverted;
        EXPECT_NEAR(subwoofer.predicted.start, expected.start, 1e-12);
        for (std::size_t i = 0; i < 4'800; ++i)
            ASSERT_NEAR(subwoofer.predicted.samples[i], expected.samples[i], 1e-9) << room;
    }
    EXPECT_TRUE(isAligned);
    EXPECT_TRUE(isInverted);
}

TEST(SystemDesign, twoSubwoofersArePredictedTogether) {
    auto speakers = simulatedRoom(1).speakers;
    for (auto& speaker : speakers)
        speaker.positions.resize(1);
    auto halves = speakers;
    for (double& sample : halves.back().positions.front().samples)
        sample /= 2;
    halves.push_back(halves.back());
    halves.back().name = "second subwoofer";
    SystemOptions options;
    options.capacities = {{48'000, 1'000, 30}};
    options.bassCapacity.maxCells = 6;
    const auto& one = designOfSimulatedRoom(1).speakers.front().predicted.samples;
    const auto two = designSystem(halves, options).speakers.front().predicted.samples;
    for (std::size_t i = 0; i < 4'800; ++i)
        ASSERT_NEAR(two[i], one[i], 1e-4);
}

TEST(SystemDesign, crossoverOfZeroLeavesTheBassSectionsAlone) {
    SystemOptions options;
    options.crossover = 0;
    EXPECT_FALSE(designSystem(simulatedRoom(1).speakers, options).bass);
}

TEST(SystemDesign, unusableInputIsRefusedWithTheSpeakersName) {
    EXPECT_THAT(refusal({}), HasSubstr("nothing to design"));
    EXPECT_THAT(refusal({{"left", false, 0, {}}}), HasSubstr("left has no response"));
    EXPECT_THAT(refusal({{"left", false, 0, {{48'000, std::vector<double>(100, 1), 0}}}}),
                HasSubstr("left: the response is shorter"));
    EXPECT_THAT(refusal({{"left", false, 0, {{48'000, std::vector<double>(9'000), 0}}}}),
                HasSubstr("left: the response is silent"));
    auto broken = speaker("left", 480, 0.5);
    broken.positions[0].samples[700] = std::numeric_limits<double>::infinity();
    EXPECT_THAT(refusal({broken}), HasSubstr("no number"));
    auto other = speaker("right", 480, 0.5);
    other.positions[0].sampleRate = 44'100;
    EXPECT_THAT(refusal({speaker("left", 480, 0.5), other}), HasSubstr("same sample rate"));
}

TEST(SystemDesign, impossibleOptionsAreRefused) {
    SystemOptions options;
    options.capacities = {{48'000, 0, 30}};
    EXPECT_THAT(refusal({speaker("left", 480, 0.5)}, options), HasSubstr("capacity 0"));
    options = {};
    options.crossover = 1'000;
    EXPECT_THAT(refusal({speaker("left", 480, 0.5)}, options), HasSubstr("crossover"));
}

TEST(SystemDesign, theBassTakesNoMoreGainThanTheDeviceHas) {
    auto speakers = simulatedRoom(1).speakers;
    const auto scale = [](MeasuredSpeaker& speaker, double gain) {
        for (auto& position : speaker.positions)
            for (double& sample : position.samples)
                sample *= std::pow(10.0, gain / 20);
    };
    scale(speakers.front(), 9);
    scale(speakers.back(), -15);
    const auto design = designSystem(speakers, {});
    for (const auto& corrected : design.speakers)
        EXPECT_GE(corrected.alignment.gain, -AlignmentCapacity().maxGain - 1e-9) << corrected.name;
    EXPECT_THAT(design.warnings,
                testing::Contains(HasSubstr("The subwoofer and the other speakers stay ")));
}
