#include "roomsim/RoomFiles.h"

#include "roomsim/WavFile.h"

#include <fstream>

namespace {

void write(const std::filesystem::path& path, const std::string& text) {
    std::ofstream stream(path);
    stream.exceptions(std::ios::failbit | std::ios::badbit);
    stream << text;
    stream.close();
}

}  // namespace

RoomFiles::RoomFiles(const nlohmann::json& room) : RoomFiles(room.dump(2)) {
}

RoomFiles::RoomFiles(const std::string& text) {
    write(room(), text);
}

void RoomFiles::rewrite(const nlohmann::json& content) const {
    write(room(), content.dump(2));
}

void RoomFiles::addWav(const std::string& name, unsigned int rate, const Signals& channels) const {
    roomsim::writeWavFile(path(name), {rate, channels});
}

nlohmann::json shoeboxRoom() {
    return nlohmann::json::parse(R"({
        "shoebox": {"size": [5.0, 4.0, 2.5], "absorption": 0.4, "lengthMs": 100},
        "speakers": [{"name": "left", "position": [1.5, 0.8, 1.1]},
                     {"name": "right", "position": [3.5, 0.8, 1.1]}],
        "microphones": [{"name": "centre", "position": [2.5, 2.8, 1.2]},
                        {"name": "side", "position": [1.2, 3.1, 1.2]}]
    })");
}

nlohmann::json measuredRoom(std::size_t speakers) {
    nlohmann::json room{{"microphones", {{{"name", "seat"}, {"responses", "responses.wav"}}}},
                        {"pace", "lockstep"},
                        {"latencyMs", 0}};
    room["speakers"] = nlohmann::json::array();
    for (std::size_t i = 0; i < speakers; ++i)
        room["speakers"].push_back({{"name", "speaker " + std::to_string(i)}});
    return room;
}
