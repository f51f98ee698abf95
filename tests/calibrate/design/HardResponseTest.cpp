#include "calibrate/design/Deviation.h"
#include "calibrate/design/Prediction.h"
#include "calibrate/design/RoomSet.h"
#include "calibrate/design/SpeakerDesign.h"
#include "calibrate/design/SystemDesign.h"
#include "calibrate/measurement/Signals.h"
#include "calibrate/measurement/SoundFile.h"
#include "calibrate/support/SoundFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

using namespace calibrate;
using measurement::ImpulseResponse;

namespace {

constexpr double kTolerance = 0.02;  // dB

/// What a room, or its measurement, can look like besides the orderly ones.
struct Hardship {
    const char* name;
    std::function<void(ImpulseResponse&)> change;  ///< of what is to be corrected
    std::function<void(ImpulseResponse&)> spoil = [](const auto&) {};  ///< of its measurement alone
};

void leave(ImpulseResponse&) {
}

void scale(ImpulseResponse& response, double factor) {
    for (double& sample : response.samples)
        sample *= factor;
}

void delay(ImpulseResponse& response, double seconds) {
    const auto count = static_cast<std::size_t>(seconds * response.sampleRate);
    response.samples.insert(response.samples.begin(), count, 0.0);
}

/// White noise this many dB below the largest sample.
void addNoise(ImpulseResponse& response, double below) {
    const double largest = std::abs(
        std::ranges::max(response.samples, {}, [](double sample) { return std::abs(sample); }));
    const auto noise =
        whiteNoise(response.samples.size(), largest * std::pow(10.0, -below / 20), 3);
    std::transform(response.samples.begin(), response.samples.end(), noise.begin(),
                   response.samples.begin(), std::plus<>());
}

void cutAfter(ImpulseResponse& response, double seconds) {
    const auto length = static_cast<std::size_t>(seconds * response.sampleRate);
    response.samples.resize(std::min(length, response.samples.size()));
}

void echo(ImpulseResponse& response, double seconds, double gain) {
    const auto distance = static_cast<std::size_t>(seconds * response.sampleRate);
    const auto direct = response.samples;
    response.samples.resize(direct.size() + distance);
    for (std::size_t i = 0; i < direct.size(); ++i)
        response.samples[i + distance] += gain * direct[i];
}

/// Poles of the first order, `order` times.
void lowPass(ImpulseResponse& response, double frequency, int order) {
    const double keep = std::exp(-2 * M_PI * frequency / response.sampleRate);
    for (int i = 0; i < order; ++i) {
        double last = 0;
        for (double& sample : response.samples)
            sample = last = (1 - keep) * sample + keep * last;
    }
}

void spike(ImpulseResponse& response) {
    std::ranges::fill(response.samples, 0.0);
    response.samples[480] = 1;
}

const std::vector<Hardship> kHardships{
    {"as it is", leave},
    {"20 dB louder", [](auto& response) { scale(response, 10); }},
    {"20 dB quieter", [](auto& response) { scale(response, 0.1); }},
    {"inverted", [](auto& response) { scale(response, -1); }},
    {"half a second late", [](auto& response) { delay(response, 0.5); }},
    // As much energy as the response's own; the checks of a recording refuse more.
    {"noise 40 dB down", leave, [](auto& response) { addNoise(response, 40); }},
    {"late, and noise 50 dB down", [](auto& response) { delay(response, 0.3); },
     [](auto& response) { addNoise(response, 50); }},
    {"measured for 60 ms", leave, [](auto& response) { cutAfter(response, 0.06); }},
    {"echo as loud as the sound", [](auto& response) { echo(response, 0.08, 1); }},
    {"echo louder than the sound", [](auto& response) { echo(response, 0.05, -1.5); }},
    {"single sample", spike},
    {"dull", [](auto& response) { lowPass(response, 2'000, 2); }},
    {"woofer", [](auto& response) { lowPass(response, 150, 4); }},
};

double deviationOf(const ImpulseResponse& response) {
    return design::deviation(measurement::PowerSpectrum(response.samples, response.sampleRate), {});
}

void expectSoundFilter(const ImpulseResponse& room, const ImpulseResponse& measured) {
    design::SystemOptions options;
    options.capacities = {{room.sampleRate, 1'000, 30}};
    const auto designed = design::designSystem({{"speaker", false, 0, {measured}}}, options);
    const auto& filter = designed.speakers.front().filters.front();
    EXPECT_TRUE(filter.isStable());
    EXPECT_LE(design::largestGain(filter), kTolerance);
    EXPECT_LE(design::boost(filter, 20, 18'000), options.correction.limits.maxBoost + kTolerance);
    EXPECT_LE(design::largestGroupDelay(filter, 20, 18'000),
              options.correction.limits.maxGroupDelay);
    EXPECT_LE(deviationOf(design::predict(room, filter)), std::max(0.1, deviationOf(room)));
}

void expectSoundFilters(const ImpulseResponse& response) {
    for (const auto& hardship : kHardships) {
        SCOPED_TRACE(hardship.name);
        auto room = response;
        hardship.change(room);
        auto measured = room;
        hardship.spoil(measured);
        expectSoundFilter(room, measured);
    }
}

}  // namespace

TEST(HardResponse, ofASimulatedRoomGetsASoundFilter) {
    expectSoundFilters(simulatedRoom(2).speakers.front().positions.front());
}

TEST(HardResponse, at44100HzGetsASoundFilter) {
    auto response = simulatedRoom(4).speakers.front().positions.front();
    response.sampleRate = 44'100;
    expectSoundFilters(response);
}

TEST(HardResponse, ofARealRoomGetsASoundFilter) {
    const auto path = testData() / "rooms/living-room/rir-front-left-right-seat1.wav";
    if (testData().empty() || !std::filesystem::exists(path))
        GTEST_SKIP() << "no measured data here";
    expectSoundFilters(measurement::impulseResponses(measurement::readSoundFile(path)).at(1));
}
