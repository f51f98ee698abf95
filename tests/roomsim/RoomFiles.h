#pragma once

#include "roomsim/Signals.h"
#include "support/ScratchDirectory.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <string>

/// A directory with a room's file and what belongs to it.
class RoomFiles {
public:
    /// Writes the room's file.
    explicit RoomFiles(const nlohmann::json& room);
    explicit RoomFiles(const std::string& text);

    std::filesystem::path room() const { return directory_.path() / "room.json"; }
    std::filesystem::path path(const std::string& name) const { return directory_.path() / name; }

    void rewrite(const nlohmann::json& room) const;

    /// Writes a WAV file of floats beside the room's file.
    void addWav(const std::string& name, unsigned int rate, const Signals& channels) const;

private:
    ScratchDirectory directory_;
};

/// A shoebox with two speakers and two microphones.
nlohmann::json shoeboxRoom();

/// A room in lock step without noise or latency, its responses in "responses.wav", a channel for
/// each of the speakers.
nlohmann::json measuredRoom(std::size_t speakers);
