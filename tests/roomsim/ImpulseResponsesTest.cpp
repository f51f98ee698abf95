#include "roomsim/ImpulseResponses.h"
#include "roomsim/RoomError.h"
#include "roomsim/RoomFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>

namespace roomsim {
namespace {

using nlohmann::json;
using testing::HasSubstr;

double levelAt(const Signal& response, double frequency, unsigned int rate) {
    std::complex<double> sum = 0.0;
    for (std::size_t n = 0; n < response.size(); ++n)
        sum += static_cast<double>(response[n]) *
               std::polar(1.0, -2.0 * std::numbers::pi * frequency * static_cast<double>(n) / rate);
    return 20.0 * std::log10(std::abs(sum));
}

Signals responsesOf(const RoomFiles& files, unsigned int rate) {
    return impulseResponses(readRoomDescription(files.room()), rate);
}

TEST(ImpulseResponses, AreTheChannelsOfOneFile) {
    const RoomFiles files(measuredRoom(2));
    const Signals written{randomResponse(500, 1), randomResponse(500, 2)};
    files.addWav("responses.wav", 48000, written);
    EXPECT_EQ(responsesOf(files, 48000), written);
}

TEST(ImpulseResponses, OrAFileForEachSpeaker) {
    json room = measuredRoom(2);
    room["microphones"][0]["responses"] = {"left.wav", "right.wav"};
    const RoomFiles files(room);
    const Signals written{randomResponse(500, 1), randomResponse(300, 2)};
    files.addWav("left.wav", 48000, {written[0]});
    files.addWav("right.wav", 48000, {written[1]});
    EXPECT_EQ(responsesOf(files, 48000), written);
}

TEST(ImpulseResponses, OrComputed) {
    const RoomFiles files(shoeboxRoom());
    const Signals computed = responsesOf(files, 48000);
    const ImageSource images({{5.0, 4.0, 2.5}, {.4, .4, .4, .4, .4, .4}, 0.1}, 343.0, 48000);
    ASSERT_EQ(computed.size(), 2U);
    EXPECT_EQ(computed[0], images.response({1.5, 0.8, 1.1}, {2.5, 2.8, 1.2}));
    EXPECT_EQ(computed[1], images.response({3.5, 0.8, 1.1}, {2.5, 2.8, 1.2}));
}

TEST(ImpulseResponses, CarryGainsAndPolarity) {
    json room = measuredRoom(3);
    room["speakers"][0]["gainDb"] = -20;
    room["speakers"][1]["inverted"] = true;
    room["speakers"][2]["dead"] = true;
    room["microphones"][0]["gainDb"] = 6.0205999132796239;
    const RoomFiles files(room);
    files.addWav("responses.wav", 48000, {{1.0F, 0.5F}, {1.0F, 0.5F}, {1.0F, 0.5F}});
    const Signals responses = responsesOf(files, 48000);
    EXPECT_FLOAT_EQ(responses[0][0], 0.2F);
    EXPECT_FLOAT_EQ(responses[1][0], -2.0F);
    EXPECT_FLOAT_EQ(responses[1][1], -1.0F);
    EXPECT_EQ(responses[2], Signal(2));
}

TEST(ImpulseResponses, KeepTheSpeakersRange) {
    json room = measuredRoom(2);
    room["speakers"][0]["highPassHz"] = 100;
    room["speakers"][1]["lowPassHz"] = 100;
    const RoomFiles files(room);
    files.addWav("responses.wav", 48000, {impulse(48000, 0, 1.0F), impulse(48000, 0, 1.0F)});
    const Signals responses = responsesOf(files, 48000);
    EXPECT_NEAR(levelAt(responses[0], 100, 48000), -3.01, 0.01);
    EXPECT_NEAR(levelAt(responses[0], 50, 48000), -24.1, 0.1);
    EXPECT_NEAR(levelAt(responses[0], 1000, 48000), 0.0, 0.01);
    EXPECT_NEAR(levelAt(responses[1], 100, 48000), -3.01, 0.01);
    EXPECT_NEAR(levelAt(responses[1], 200, 48000), -24.1, 0.1);
    EXPECT_NEAR(levelAt(responses[1], 20, 48000), 0.0, 0.01);
}

class ResampledResponses : public testing::TestWithParam<std::pair<unsigned int, unsigned int>> {};

TEST_P(ResampledResponses, KeepTheirFrequencyResponse) {
    const auto [from, to] = GetParam();
    const RoomFiles files(measuredRoom(1));
    const Signal written = delayed(randomResponse(2000, 3), 200, 2400);
    files.addWav("responses.wav", from, {written});
    const Signal response = responsesOf(files, to).front();
    for (double frequency = 20.0; frequency < 19'000.0; frequency *= 1.37)
        EXPECT_NEAR(levelAt(response, frequency, to), levelAt(written, frequency, from), 0.02)
            << frequency;
}

INSTANTIATE_TEST_SUITE_P(Rates, ResampledResponses,
                         testing::Values(std::pair{44100U, 48000U}, std::pair{48000U, 44100U},
                                         std::pair{48000U, 192000U}, std::pair{96000U, 44100U}));

TEST(ImpulseResponses, ResamplingKeepsTheDelay) {
    const Signal response = resampled(impulse(4800, 480, 1.0F), 48000, 96000);
    EXPECT_EQ(std::ranges::max_element(response) - response.begin(), 960);
}

TEST(ImpulseResponses, TheLongestCountsAllMicrophones) {
    json room = shoeboxRoom();
    room["microphones"].push_back({{"name", "measured"}, {"responses", "responses.wav"}});
    const RoomFiles files(room);
    files.addWav("responses.wav", 44100, {Signal(44100), Signal(44100)});
    EXPECT_DOUBLE_EQ(longestResponse(readRoomDescription(files.room())), 1.0);
}

void expectComplaint(const RoomFiles& files, int code, const std::string& text) {
    try {
        (void)responsesOf(files, 48000);
        FAIL() << "not refused: " << text;
    } catch (const RoomError& error) {
        EXPECT_EQ(error.code(), code);
        EXPECT_THAT(error.what(), HasSubstr(text));
    }
}

TEST(ImpulseResponses, AMissingFileIsNamed) {
    const RoomFiles files(measuredRoom(2));
    expectComplaint(files, ENOENT, files.path("responses.wav").string() + ": ");
}

TEST(ImpulseResponses, AFileThatIsNoSoundIsNamed) {
    json room = measuredRoom(2);
    room["microphones"][0]["responses"] = "room.json";
    const RoomFiles files(room);
    expectComplaint(files, EINVAL, files.room().string() + ": ");
}

TEST(ImpulseResponses, AnEmptyFileIsRefused) {
    const RoomFiles files(measuredRoom(1));
    files.addWav("responses.wav", 48000, {{}});
    expectComplaint(files, EINVAL, "responses.wav: has 0 frames");
}

TEST(ImpulseResponses, AWrongNumberOfChannelsIsRefused) {
    const RoomFiles files(measuredRoom(2));
    files.addWav("responses.wav", 48000, {Signal(10), Signal(10), Signal(10)});
    expectComplaint(files, EINVAL, "responses.wav: has 3 channels, not 2");
}

TEST(ImpulseResponses, AWrongNumberOfFilesIsRefused) {
    json room = measuredRoom(3);
    room["microphones"][0]["responses"] = {"a.wav", "b.wav"};
    const RoomFiles files(room);
    expectComplaint(files, EINVAL, "microphones: \"seat\" has 2 responses for 3 speakers");
}

}  // namespace
}  // namespace roomsim
