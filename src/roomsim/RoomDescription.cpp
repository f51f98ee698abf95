#include "roomsim/RoomDescription.h"

#include "roomsim/JsonNode.h"
#include "roomsim/RoomError.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <fstream>

namespace roomsim {
namespace {

constexpr double kSpeedOfSound = 343.0;  // m/s, in air at 20 degrees
constexpr double kLatencyMs = 5.0;
constexpr double kResponseLengthMs = 500.0;
constexpr double kLongestResponseMs = 10'000.0;
constexpr double kNearestMetres = 0.01;
constexpr std::size_t kMostSpeakers = 64;

double fromDecibels(double level) {
    return std::pow(10.0, level / 20.0);
}

Position readPosition(const JsonNode& node, double lowest, double highest) {
    const auto elements = node.elements();
    if (elements.size() != 3)
        node.fail("is not a list of three numbers, x, y and z");
    Position position{};
    std::ranges::transform(elements, position.begin(), [=](const JsonNode& element) {
        return element.number(lowest, highest);
    });
    return position;
}

std::optional<Position> readPosition(const JsonNode& owner, const std::optional<Shoebox>& room) {
    const auto node = owner.find("position");
    if (!node)
        return std::nullopt;
    const Position position = readPosition(*node, 0.0, 1000.0);
    if (room && !std::ranges::equal(position, room->size, std::less_equal<>()))
        node->fail("is outside the room");
    return position;
}

std::array<double, 6> readAbsorption(const JsonNode& node) {
    std::array<double, 6> absorption{};
    if (node.isNumber()) {
        absorption.fill(node.number(0.0, 1.0));
        return absorption;
    }
    constexpr std::array kWalls{"left", "right", "front", "back", "floor", "ceiling"};
    node.expectKeys({kWalls.begin(), kWalls.end()});
    std::ranges::transform(kWalls, absorption.begin(),
                           [&node](const char* wall) { return node.at(wall).number(0.0, 1.0); });
    return absorption;
}

std::optional<Shoebox> readShoebox(const JsonNode& room) {
    const auto node = room.find("shoebox");
    if (!node)
        return std::nullopt;
    node->expectKeys({"size", "absorption", "lengthMs"});
    return Shoebox{readPosition(node->at("size"), 0.5, 1000.0),
                   readAbsorption(node->at("absorption")),
                   node->numberOr("lengthMs", kResponseLengthMs, 1.0, kLongestResponseMs) * 1e-3};
}

std::optional<double> readFrequency(const JsonNode& speaker, const std::string& name) {
    const auto node = speaker.find(name);
    return node ? std::optional(node->number(1.0, 20'000.0)) : std::nullopt;
}

bool isSet(const JsonNode& owner, const std::string& name) {
    const auto node = owner.find(name);
    return node && node->boolean();
}

double readSpeakerGain(const JsonNode& node) {
    if (isSet(node, "dead"))
        return 0.0;
    const double gain = fromDecibels(node.numberOr("gainDb", 0.0, -200.0, 60.0));
    return isSet(node, "inverted") ? -gain : gain;
}

std::string readName(const JsonNode& owner) {
    const auto node = owner.find("name");
    return node ? node->text() : std::string();
}

Speaker readSpeaker(const JsonNode& node, const std::optional<Shoebox>& room) {
    node.expectKeys({"name", "position", "gainDb", "inverted", "dead", "highPassHz", "lowPassHz"});
    return {readName(node), readPosition(node, room), readSpeakerGain(node),
            readFrequency(node, "highPassHz"), readFrequency(node, "lowPassHz")};
}

std::vector<std::filesystem::path> readResponses(const JsonNode& microphone,
                                                 const std::filesystem::path& directory) {
    const auto node = microphone.find("responses");
    if (!node)
        return {};
    if (!node->isArray())
        return {directory / node->text()};
    std::vector<std::filesystem::path> files;
    for (const JsonNode& element : node->elements())
        files.push_back(directory / element.text());
    return files;
}

Microphone readMicrophone(const JsonNode& node, const RoomDescription& room) {
    node.expectKeys({"name", "position", "responses", "gainDb", "unpluggedAfterMs"});
    std::optional<double> unplugged;
    if (const auto after = node.find("unpluggedAfterMs"))
        unplugged = after->number(0.0, 1e9) * 1e-3;
    return {readName(node), readPosition(node, room.shoebox),
            readResponses(node, room.file.parent_path()),
            fromDecibels(node.numberOr("gainDb", 0.0, -200.0, 60.0)), unplugged};
}

double distance(const Position& a, const Position& b) {
    return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
}

/// A microphone without files needs the shoebox and every position.
void checkComputable(const JsonNode& node, const Microphone& microphone,
                     const RoomDescription& room) {
    if (!room.shoebox)
        node.fail("has no \"responses\", and the room no \"shoebox\" to compute them");
    if (!microphone.position)
        node.fail("has neither \"responses\" nor a \"position\"");
    for (std::size_t i = 0; i < room.speakers.size(); ++i) {
        const std::string speaker = "speakers[" + std::to_string(i) + "]";
        if (!room.speakers[i].position)
            node.fail("has no \"responses\", and " + speaker + " no \"position\"");
        if (distance(*room.speakers[i].position, *microphone.position) < kNearestMetres)
            node.fail("is at the place of " + speaker);
    }
}

void readSpeakers(const JsonNode& document, RoomDescription& room) {
    const JsonNode list = document.at("speakers");
    for (const JsonNode& node : list.elements())
        room.speakers.push_back(readSpeaker(node, room.shoebox));
    if (room.speakers.empty() || room.speakers.size() > kMostSpeakers)
        list.fail("does not list 1 to " + std::to_string(kMostSpeakers) + " speakers");
}

void readMicrophones(const JsonNode& document, RoomDescription& room) {
    const JsonNode list = document.at("microphones");
    for (const JsonNode& node : list.elements()) {
        room.microphones.push_back(readMicrophone(node, room));
        if (room.microphones.back().responses.empty())
            checkComputable(node, room.microphones.back(), room);
    }
    if (room.microphones.empty())
        list.fail("lists no microphone");
}

/// By name, else by index.
std::optional<std::size_t> findMicrophone(const RoomDescription& room, const std::string& wanted) {
    const auto named = std::ranges::find(room.microphones, wanted, &Microphone::name);
    if (named != room.microphones.end())
        return static_cast<std::size_t>(named - room.microphones.begin());
    for (std::size_t index = 0; index < room.microphones.size(); ++index) {
        if (std::to_string(index) == wanted)
            return index;
    }
    return std::nullopt;
}

std::size_t chooseMicrophone(const JsonNode& document, const RoomDescription& room,
                             const std::string& asked) {
    if (!asked.empty()) {
        if (const auto index = findMicrophone(room, asked))
            return *index;
        document.at("microphones").fail("lists no microphone \"" + asked + "\"");
    }
    const auto node = document.find("microphone");
    if (!node)
        return 0;
    const std::string wanted = node->isNumber() ? std::to_string(node->count()) : node->text();
    if (const auto index = findMicrophone(room, wanted))
        return *index;
    node->fail("is \"" + wanted + "\", which \"microphones\" does not list");
}

Pace readPace(const JsonNode& document) {
    const auto node = document.find("pace");
    if (!node)
        return {false, 1.0};
    if (node->isNumber())
        return {false, node->number(0.01, 1000.0)};
    const std::string pace = node->text();
    if (pace != "realtime" && pace != "lockstep")
        node->fail("is \"" + pace + "\", not \"realtime\", \"lockstep\" or a factor");
    return {pace == "lockstep", 1.0};
}

void readNoise(const JsonNode& document, RoomDescription& room) {
    const auto node = document.find("noise");
    if (!node)
        return;
    node->expectKeys({"levelDb", "seed"});
    room.noise = fromDecibels(node->at("levelDb").number(-300.0, 0.0));
    if (const auto seed = node->find("seed"))
        room.noiseSeed = seed->count();
}

nlohmann::json parse(const std::filesystem::path& file) {
    std::ifstream stream(file);
    if (!stream)
        throw RoomError(ENOENT, file.string() + ": cannot be read");
    try {
        return nlohmann::json::parse(stream, nullptr, true, true);
    } catch (const nlohmann::json::exception& error) {
        throw RoomError(EINVAL, file.string() + ": " + error.what());
    }
}

}  // namespace

RoomDescription readRoomDescription(const std::filesystem::path& file,
                                    const std::string& microphone) {
    const nlohmann::json json = parse(file);
    const JsonNode document(file, json, {});
    document.expectKeys({"speedOfSound", "shoebox", "speakers", "microphones", "microphone",
                         "noise", "latencyMs", "driftPpm", "pace"});
    RoomDescription room{};
    room.file = file;
    room.speedOfSound = document.numberOr("speedOfSound", kSpeedOfSound, 1.0, 10'000.0);
    room.shoebox = readShoebox(document);
    readSpeakers(document, room);
    readMicrophones(document, room);
    room.microphone = chooseMicrophone(document, room, microphone);
    readNoise(document, room);
    room.latency = document.numberOr("latencyMs", kLatencyMs, 0.0, 1000.0) * 1e-3;
    room.driftPpm = document.numberOr("driftPpm", 0.0, -10'000.0, 10'000.0);
    room.pace = readPace(document);
    return room;
}

}  // namespace roomsim
