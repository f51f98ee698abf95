#include "roomsim/RoomDescription.h"
#include "roomsim/RoomError.h"
#include "roomsim/RoomFiles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>

namespace roomsim {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;

RoomDescription described(const json& room, const std::string& microphone = {}) {
    const RoomFiles files(room);
    return readRoomDescription(files.room(), microphone);
}

TEST(RoomDescription, HasSensibleDefaults) {
    const RoomDescription room = described(shoeboxRoom());
    EXPECT_EQ(room.speedOfSound, 343.0);
    EXPECT_EQ(room.noise, 0.0);
    EXPECT_EQ(room.latency, 0.005);
    EXPECT_EQ(room.driftPpm, 0.0);
    EXPECT_FALSE(room.pace.lockStep);
    EXPECT_EQ(room.pace.speed, 1.0);
    EXPECT_EQ(room.microphone, 0U);
    EXPECT_EQ(room.speakers[1].gain, 1.0);
}

TEST(RoomDescription, ReadsEveryKey) {
    json room = shoeboxRoom();
    room.update(json::parse(R"({
        "speedOfSound": 340, "microphone": "side", "latencyMs": 12.5, "driftPpm": -30,
        "noise": {"levelDb": -60, "seed": 7}, "pace": 20})"));
    room["speakers"][0].update(
        json::parse(R"({"gainDb": -20, "inverted": true, "highPassHz": 45, "lowPassHz": 120})"));
    room["speakers"][1]["dead"] = true;
    room["microphones"][1].update(json::parse(R"({"gainDb": 20, "unpluggedAfterMs": 1500})"));
    const RoomDescription read = described(room);
    EXPECT_EQ(read.speedOfSound, 340.0);
    EXPECT_EQ(read.microphone, 1U);
    EXPECT_DOUBLE_EQ(read.latency, 0.0125);
    EXPECT_EQ(read.driftPpm, -30.0);
    EXPECT_DOUBLE_EQ(read.noise, 0.001);
    EXPECT_EQ(read.noiseSeed, 7U);
    EXPECT_EQ(read.pace.speed, 20.0);
    EXPECT_DOUBLE_EQ(read.speakers[0].gain, -0.1);
    EXPECT_EQ(read.speakers[0].highPass, 45.0);
    EXPECT_EQ(read.speakers[0].lowPass, 120.0);
    EXPECT_EQ(read.speakers[1].gain, 0.0);
    EXPECT_DOUBLE_EQ(read.microphones[1].gain, 10.0);
    EXPECT_EQ(read.microphones[1].unpluggedAfter, 1.5);
}

TEST(RoomDescription, AbsorptionIsOneForAllWallsOrOneForEach) {
    json room = shoeboxRoom();
    EXPECT_EQ(described(room).shoebox->absorption, (std::array{.4, .4, .4, .4, .4, .4}));
    room["shoebox"]["absorption"] = {{"left", 0.1}, {"right", 0.2}, {"front", 0.3},
                                     {"back", 0.4}, {"floor", 0.5}, {"ceiling", 0.6}};
    EXPECT_EQ(described(room).shoebox->absorption, (std::array{.1, .2, .3, .4, .5, .6}));
}

TEST(RoomDescription, ResponseFilesLieBesideTheRoom) {
    json room = measuredRoom(2);
    room["microphones"][0]["responses"] = {"left.wav", "/there/right.wav"};
    const RoomFiles files(room);
    const auto responses = readRoomDescription(files.room()).microphones[0].responses;
    EXPECT_EQ(responses[0], files.path("left.wav"));
    EXPECT_EQ(responses[1], "/there/right.wav");
}

TEST(RoomDescription, TheMicrophoneAskedForWins) {
    json room = shoeboxRoom();
    room["microphone"] = "centre";
    EXPECT_EQ(described(room, "side").microphone, 1U);
    EXPECT_EQ(described(room, "1").microphone, 1U);
    EXPECT_EQ(described(room, "").microphone, 0U);
}

TEST(RoomDescription, CommentsAreAllowed) {
    const RoomFiles files("// two speakers\n" + shoeboxRoom().dump());
    EXPECT_EQ(readRoomDescription(files.room()).speakers.size(), 2U);
}

std::string complaint(const json& room, const std::string& microphone = {}) {
    const RoomFiles files(room);
    try {
        (void)readRoomDescription(files.room(), microphone);
    } catch (const RoomError& error) {
        EXPECT_EQ(error.code(), EINVAL);
        EXPECT_THAT(error.what(), HasSubstr(files.room().string()));
        return error.what();
    }
    return "none";
}

struct Fault {
    const char* path;   ///< of the key that gets the value; a JSON pointer
    const char* value;  ///< JSON, or "" to remove the key
    const char* complaint;
};

class FaultyDescription : public testing::TestWithParam<Fault> {};

TEST_P(FaultyDescription, IsRefusedWithTheKey) {
    json room = shoeboxRoom();
    const json::json_pointer pointer(GetParam().path);
    if (*GetParam().value == '\0')
        room[pointer.parent_pointer()].erase(pointer.back());
    else
        room[pointer] = json::parse(GetParam().value);
    EXPECT_THAT(complaint(room), HasSubstr(GetParam().complaint));
}

INSTANTIATE_TEST_SUITE_P(
    Each, FaultyDescription,
    testing::Values(
        Fault{"/speakers", "", ": speakers: is missing"},
        Fault{"/speakers", "[]", ": speakers: does not list 1 to 64 speakers"},
        Fault{"/speakers", "3", ": speakers: is not an array"},
        Fault{"/speakers/1/colour", "1", ": speakers[1].colour: is not known"},
        Fault{"/speakers/0/gainDb", "\"loud\"", ": speakers[0].gainDb: is not a number"},
        Fault{"/speakers/0/gainDb", "90", ": speakers[0].gainDb: is 90, not between -200 and 60"},
        Fault{"/speakers/0/inverted", "1", ": speakers[0].inverted: is neither true nor false"},
        Fault{"/speakers/0/name", "1", ": speakers[0].name: is not a text"},
        Fault{"/speakers/0/highPassHz", "0", ": speakers[0].highPassHz: is 0, not between"},
        Fault{"/speakers/1/position", "[1, 9, 1]", ": speakers[1].position: is outside the room"},
        Fault{"/speakers/1/position", "[1, 1]", ": speakers[1].position: is not a list of three"},
        Fault{"/speakers/1/position", "", "and speakers[1] no \"position\""},
        Fault{"/microphones", "", ": microphones: is missing"},
        Fault{"/microphones", "[]", ": microphones: lists no microphone"},
        Fault{"/microphones/1/position", "", ": microphones[1]: has neither"},
        Fault{"/microphones/1/position", "[1.5, 0.8, 1.1]", "is at the place of speakers[0]"},
        Fault{"/microphones/0/responses", "[1]", ": microphones[0].responses[0]: is not a text"},
        Fault{"/microphones/0/unpluggedAfterMs", "-1", ": microphones[0].unpluggedAfterMs: is -1"},
        Fault{"/microphone", "\"roof\"", ": microphone: is \"roof\", which"},
        Fault{"/microphone", "2", ": microphone: is \"2\", which"},
        Fault{"/microphone", "-1", ": microphone: is not a whole number"},
        Fault{"/shoebox", "", "and the room no \"shoebox\""},
        Fault{"/shoebox/size", "", ": shoebox.size: is missing"},
        Fault{"/shoebox/size", "[5, 4, 0]", ": shoebox.size[2]: is 0, not between"},
        Fault{"/shoebox/absorption", "", ": shoebox.absorption: is missing"},
        Fault{"/shoebox/absorption", "1.5", ": shoebox.absorption: is 1.5, not between 0 and 1"},
        Fault{"/shoebox/absorption", "{\"floor\": 0.1}", ": shoebox.absorption.left: is missing"},
        Fault{"/shoebox/lengthMs", "0", ": shoebox.lengthMs: is 0, not between"},
        Fault{"/noise", "-60", ": noise: is not an object"},
        Fault{"/noise", "{}", ": noise.levelDb: is missing"},
        Fault{"/noise", "{\"levelDb\": 3}", ": noise.levelDb: is 3, not between -300 and 0"},
        Fault{"/noise", "{\"levelDb\": -60, \"seed\": -1}", ": noise.seed: is not a whole"},
        Fault{"/pace", "\"fast\"", ": pace: is \"fast\", not"},
        Fault{"/pace", "0", ": pace: is 0, not between 0.01 and 1000"},
        Fault{"/pace", "true", ": pace: is not a text"},
        Fault{"/latencyMs", "-1", ": latencyMs: is -1, not between"},
        Fault{"/driftPpm", "1e6", ": driftPpm: is 1e+06, not between"},
        Fault{"/speedOfSound", "0", ": speedOfSound: is 0, not between"},
        Fault{"/speed", "1", ": speed: is not known"}));

TEST(RoomDescription, AnUnknownMicrophoneAskedForIsAnError) {
    EXPECT_THAT(complaint(shoeboxRoom(), "roof"),
                HasSubstr(": microphones: lists no microphone \"roof\""));
}

TEST(RoomDescription, ADamagedFileIsRefusedWithTheLine) {
    const RoomFiles files(std::string("{\n  \"speakers\": [\n}"));
    try {
        (void)readRoomDescription(files.room());
        FAIL();
    } catch (const RoomError& error) {
        EXPECT_THAT(error.what(), AllOf(HasSubstr(files.room().string()), HasSubstr("line 3")));
    }
}

TEST(RoomDescription, AMissingFileIsRefused) {
    try {
        (void)readRoomDescription("/nowhere/room.json");
        FAIL();
    } catch (const RoomError& error) {
        EXPECT_EQ(error.code(), ENOENT);
        EXPECT_THAT(error.what(), HasSubstr("/nowhere/room.json: cannot be read"));
    }
}

}  // namespace
}  // namespace roomsim
