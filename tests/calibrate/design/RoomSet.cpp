#include "calibrate/design/RoomSet.h"

#include "roomsim/ImpulseResponses.h"

#include <map>
#include <random>

using calibrate::design::SystemDesign;

namespace {

constexpr unsigned kRate = 48'000;

/// Draws a room's measures.
class Dice {
public:
    explicit Dice(std::size_t seed) : random_(static_cast<unsigned>(1'000 + seed)) {}

    double between(double least, double most) {
        return least + (most - least) * static_cast<double>(random_()) /
                           static_cast<double>(std::mt19937::max());
    }

private:
    std::mt19937 random_;
};

roomsim::Shoebox shoebox(Dice& dice) {
    roomsim::Shoebox room{};
    room.size = {dice.between(3.6, 6.5), dice.between(3.2, 5.5), dice.between(2.3, 2.9)};
    for (double& wall : room.absorption)
        wall = dice.between(0.2, 0.45);
    room.length = 0.4;
    return room;
}

roomsim::Speaker speaker(const std::string& name, const roomsim::Position& position, double gain,
                         double highPass) {
    roomsim::Speaker speaker{};
    speaker.name = name;
    speaker.position = position;
    speaker.gain = gain;
    speaker.highPass = highPass;
    return speaker;
}

roomsim::Microphone seat(const roomsim::Position& position) {
    roomsim::Microphone microphone{};
    microphone.name = "seat";
    microphone.position = position;
    microphone.gain = 1;
    return microphone;
}

roomsim::RoomDescription describe(Dice& dice, bool withSubwoofer) {
    roomsim::RoomDescription room{};
    room.speedOfSound = 343;
    room.shoebox = shoebox(dice);
    const auto [width, depth, height] = room.shoebox->size;
    const double ear = dice.between(1.0, 1.2);
    const double highPass = withSubwoofer ? 60 : dice.between(28, 40);
    room.speakers = {
        speaker("left", {width * dice.between(0.2, 0.3), dice.between(0.5, 0.9), ear}, 0.25,
                highPass),
        speaker("right", {width * dice.between(0.68, 0.8), dice.between(0.5, 0.9), ear}, 0.22,
                highPass)};
    if (withSubwoofer) {
        room.speakers.push_back(
            speaker("subwoofer", {dice.between(0.3, 0.6), dice.between(0.3, 0.6), 0.25}, 0.2, 20));
        room.speakers.back().lowPass = 200;
    }
    const roomsim::Position first{width * dice.between(0.42, 0.55), depth * dice.between(0.6, 0.75),
                                  ear};
    room.microphones = {seat(first), seat({first[0] + 0.35, first[1] - 0.1, ear})};
    return room;
}

SimulatedRoom makeRoom(std::size_t index) {
    Dice dice(index);
    const bool withSubwoofer = index % 2 == 1;
    auto description = describe(dice, withSubwoofer);
    SimulatedRoom room{{}, *description.speakers.front().highPass};
    for (const auto& described : description.speakers)
        room.speakers.push_back({described.name, described.lowPass.has_value(), 0, {}});
    for (std::size_t microphone = 0; microphone < description.microphones.size(); ++microphone) {
        description.microphone = microphone;
        const auto responses = roomsim::impulseResponses(description, kRate);
        for (std::size_t i = 0; i < responses.size(); ++i) {
            room.speakers[i].positions.push_back(
                {static_cast<double>(kRate), {responses[i].begin(), responses[i].end()}, 0});
        }
    }
    return room;
}

SystemDesign designFor(const SimulatedRoom& room) {
    auto speakers = room.speakers;
    for (auto& speaker : speakers)
        speaker.positions.resize(1);
    calibrate::design::SystemOptions options;
    options.capacities = {{static_cast<double>(kRate), 1'000, 30}};
    return designSystem(speakers, options);
}

}  // namespace

const SimulatedRoom& simulatedRoom(std::size_t index) {
    static std::map<std::size_t, SimulatedRoom> rooms;
    const auto found = rooms.find(index);
    return found != rooms.end() ? found->second
                                : rooms.emplace(index, makeRoom(index)).first->second;
}

const SystemDesign& designOfSimulatedRoom(std::size_t index) {
    static std::map<std::size_t, SystemDesign> designs;
    const auto found = designs.find(index);
    return found != designs.end()
               ? found->second
               : designs.emplace(index, designFor(simulatedRoom(index))).first->second;
}
